// Tests of the preview view as drawn: on a virtual X server with Mesa's software OpenGL, with
// a stand-in for the card's preview helper that notes the OpenGL state it paints in.
#include <gtest/gtest.h>

#include <GL/gl.h>
#include <stdlib.h>

#include <QApplication>
#include <QOpenGLContext>
#include <QSurfaceFormat>
#include <QWidget>
#include <array>
#include <chrono>
#include <functional>
#include <memory>

#include "Capture/Previewer.h"
#include "Capture/PreviewGLView.h"
#include "Capture/VeldranAPILoader.h"
#include "DeviceAPI/VeldranObject.h"
#include "Util/ScratchFolder.h"
#include "tests/VirtualDisplay.h"

namespace KTN {
namespace {

// One QApplication on the X platform of a virtual display, for the whole test program.
class VirtualDisplayQtApplication : public testing::Environment {
 public:
  void SetUp() override {
    mDisplay.reset(new VirtualDisplay);
    if (mDisplay->Name().empty()) return;
    mScratch.reset(new Util::ScratchFolder);
    setenv("DISPLAY", mDisplay->Name().c_str(), 1);
    setenv("QT_QPA_PLATFORM", "xcb", 1);
    setenv("LIBGL_ALWAYS_SOFTWARE", "1", 1);
    setenv("XDG_RUNTIME_DIR", mScratch->Path().c_str(), 1);
    static int argc = 1;
    static char* argv[] = {const_cast<char*>("test"), nullptr};
    mApplication.reset(new QApplication(argc, argv));
  }
  void TearDown() override {
    mApplication.reset();
    mScratch.reset();
    mDisplay.reset();
  }
  static bool Ready() { return QApplication::instance() != nullptr; }

 private:
  std::unique_ptr<VirtualDisplay> mDisplay;
  std::unique_ptr<Util::ScratchFolder> mScratch;
  std::unique_ptr<QApplication> mApplication;
};

const bool sQt = (testing::AddGlobalTestEnvironment(new VirtualDisplayQtApplication), true);

// What the helper saw at its last paint.
struct PaintState {
  int paints = 0;
  std::array<float, 4> clearColour = {-1, -1, -1, -1};
};
PaintState sPainted;

// The helper's own clear colour, set when it initialises its OpenGL state.
constexpr std::array<float, 4> kHelperClearColour = {0.25f, 0.5f, 0.75f, 1.0f};

// Stands in for the card's OpenGL preview helper: sets its own clear colour and notes the
// one it paints with.
class FakePaintingHelper : public VeldranObject<IVeldranGLScreenPreviewHelper> {
 public:
  VeldranResult InitializeGL() override {
    glClearColor(kHelperClearColour[0], kHelperClearColour[1], kHelperClearColour[2], kHelperClearColour[3]);
    return kVeldranOK;
  }
  VeldranResult PaintGL() override {
    glGetFloatv(GL_COLOR_CLEAR_VALUE, sPainted.clearColour.data());
    ++sPainted.paints;
    return kVeldranOK;
  }
  VeldranResult SetFrame(IVeldranVideoFrame*) override { return kVeldranOK; }
};

IVeldranGLScreenPreviewHelper* CreateFakeHelper() {
  return new FakePaintingHelper;
}

class PreviewGLViewTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(VirtualDisplayQtApplication::Ready()) << "Xvfb did not start";
    VeldranEntryPoints entryPoints;
    entryPoints.createOpenGLPreview = CreateFakeHelper;
    SetVeldranEntryPointsForTesting(entryPoints);
    sPainted = PaintState();
    mHostView.reset(new QWidget);
    mHostView->resize(320, 180);
    mPreviewer = Previewer::Create();
    pmDisplayPos display = {};
    display.window = mHostView.get();
    display.rect[2] = 320;
    display.rect[3] = 180;
    mPreviewer->SetDisplay(&display);
    prFloatRect whole = {0, 0, 1, 1};
    mPreviewer->SetView(&whole);
    mView = mHostView->findChild<PreviewGLView*>(PreviewGLView::kTagName);
    ASSERT_NE(nullptr, mView);
    mAskedFormat = mView->format();  // once shown, format() tells what the context has
    mHostView->show();
  }
  void TearDown() override {
    if (mPreviewer) mPreviewer->Release();
    RunGuiThreadWorkUntil([] { return false; }, 100);
    mHostView.reset();
    SetVeldranEntryPointsForTesting(VeldranEntryPoints());
  }
  // Runs the GUI thread's work until done() holds or at most boundMillis have passed;
  // whether done() held.
  static bool RunGuiThreadWorkUntil(const std::function<bool()>& done, int boundMillis) {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(boundMillis);
    while (!done() && std::chrono::steady_clock::now() < end) {
      QApplication::processEvents(QEventLoop::AllEvents, 20);
      QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return done();
  }
  bool Painted(int paints) {
    return RunGuiThreadWorkUntil([paints] { return sPainted.paints >= paints; }, 10000);
  }

  std::unique_ptr<QWidget> mHostView;
  Previewer* mPreviewer = nullptr;
  PreviewGLView* mView = nullptr;
  QSurfaceFormat mAskedFormat;
};

// A paint lets the helper paint with the context's clear colour, whatever that is: the view
// sets none of its own.
TEST_F(PreviewGLViewTest, APaintLeavesTheClearColourAlone) {
  ASSERT_TRUE(Painted(1)) << "the view was never painted";
  EXPECT_EQ(kHelperClearColour, sPainted.clearColour);
  int paints = sPainted.paints;
  mView->update();
  ASSERT_TRUE(Painted(paints + 1));
  EXPECT_EQ(kHelperClearColour, sPainted.clearColour) << "nor at a later paint";
}

// The view asks for a 32-bit depth buffer and takes what the platform gives for it.
TEST_F(PreviewGLViewTest, TheViewAsksForA32BitDepthBuffer) {
  EXPECT_EQ(32, mAskedFormat.depthBufferSize());
  ASSERT_TRUE(Painted(1)) << "no context with the format asked for";
  ASSERT_NE(nullptr, mView->context());
  EXPECT_TRUE(mView->context()->isValid());
}

// The view fills its host's view and keeps filling it as the host's view changes size, with
// nobody but the host's view's own resizing involved.
TEST_F(PreviewGLViewTest, TheViewFollowsItsHostsSize) {
  ASSERT_TRUE(Painted(1));
  EXPECT_EQ(mHostView->rect(), mView->geometry());
  for (QSize size : {QSize(640, 360), QSize(200, 120)}) {
    mHostView->resize(size);
    EXPECT_TRUE(RunGuiThreadWorkUntil([&] { return mView->geometry() == QRect(QPoint(0, 0), size); }, 5000))
        << size.width() << "x" << size.height() << ": the view is " << mView->width() << "x" << mView->height();
  }
}

}  // namespace
}  // namespace KTN
