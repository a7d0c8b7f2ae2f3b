// Tests of the live preview's registration and placement, on Qt's offscreen platform with a
// stand-in for the card's preview helper.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <QApplication>
#include <QPointer>
#include <QWidget>
#include <array>
#include <atomic>

#include "Capture/APICapture.h"
#include "Capture/FakeVeldran.h"
#include "Capture/LinuxPreviewer.h"
#include "Capture/PreviewGLView.h"
#include "Capture/VeldranAPILoader.h"
#include "DeviceAPI/VeldranObject.h"
#include "Util/CapturedStderr.h"
#include "tests/OffscreenQtApplication.h"

namespace KTN {
namespace {

const bool sQt = (testing::AddGlobalTestEnvironment(new OffscreenQtApplication), true);

std::atomic<int> sFramesSet{0};

// Stands in for the card's OpenGL preview helper: counts the frames it is given.
class FakePreviewHelper : public VeldranObject<IVeldranGLScreenPreviewHelper> {
 public:
  VeldranResult InitializeGL() override { return kVeldranOK; }
  VeldranResult PaintGL() override { return kVeldranOK; }
  VeldranResult SetFrame(IVeldranVideoFrame* frame) override {
    if (frame) ++sFramesSet;
    return kVeldranOK;
  }
};

IVeldranGLScreenPreviewHelper* CreateFakeHelper() {
  return new FakePreviewHelper;
}

class FakeFrame : public VeldranObject<IVeldranVideoFrame> {
 public:
  int32_t GetWidth() override { return 16; }
  int32_t GetHeight() override { return 16; }
  int32_t GetRowBytes() override { return 32; }
  uint32_t GetPixelFormat() override { return ktnFormat8BitYUV; }
  uint32_t GetFlags() override { return 0; }
  VeldranResult GetBytes(void** buffer) override {
    *buffer = mBytes;
    return kVeldranOK;
  }

 private:
  uint8_t mBytes[512] = {};
};

class PreviewerTest : public testing::Test {
 protected:
  void SetUp() override {
    mCard.Install();
    mCapture = new APICapture;
    ASSERT_EQ(0, mCapture->Init());
    // From here the card offers a preview helper: the stand-in.
    VeldranEntryPoints entryPoints;
    entryPoints.createOpenGLPreview = CreateFakeHelper;
    SetVeldranEntryPointsForTesting(entryPoints);
    mCard.calls.clear();
    sFramesSet = 0;
    mHostView.resize(320, 180);
  }
  void TearDown() override {
    mCapture->Release();
    Previewer::sCurrent = nullptr;
  }
  std::string Calls() {
    std::string text;
    for (const std::string& call : mCard.calls) text += call + ";";
    return text;
  }
  pmDisplayPos Display() {
    pmDisplayPos display = {};
    display.window = &mHostView;
    display.rect[2] = 320;
    display.rect[3] = 180;
    return display;
  }
  // Preview views anywhere inside the host's view.
  int PreviewViews() { return static_cast<int>(mHostView.findChildren<QWidget*>(PreviewGLView::kTagName).size()); }
  // The preview view in the host's view, or null.
  PreviewGLView* ShownView() { return mHostView.findChild<PreviewGLView*>(PreviewGLView::kTagName); }
  // Runs what the GUI thread has been asked to do, deletions included.
  static void RunGuiThreadWork() {
    QApplication::processEvents();
    QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  }

  FakeVeldran mCard;
  APICapture* mCapture = nullptr;
  QWidget mHostView;
};

TEST_F(PreviewerTest, ASecondPreviewerReplacesTheFirstWhoseDisableThenDoesNothing) {
  Previewer* first = Previewer::Create();
  Previewer* second = Previewer::Create();
  EXPECT_EQ(0, first->Enable(mCapture->mInput));
  EXPECT_EQ(first, Previewer::sCurrent.load());
  EXPECT_EQ(0, second->Enable(mCapture->mInput));
  EXPECT_EQ(second, Previewer::sCurrent.load());
  mCard.calls.clear();
  EXPECT_EQ(0, first->Disable(mCapture->mInput));
  EXPECT_EQ("", Calls()) << "the successor's registration is left alone";
  EXPECT_EQ(second, Previewer::sCurrent.load());
  EXPECT_EQ(0, second->Disable(mCapture->mInput));
  EXPECT_EQ("SetScreenPreviewCallback(null);", Calls());
  EXPECT_EQ(nullptr, Previewer::sCurrent.load());
  first->Release();
  second->Release();
}

TEST_F(PreviewerTest, NullDeviceChangesNothingAndAFailedRegistrationIsReported) {
  Previewer* previewer = Previewer::Create();
  EXPECT_EQ(0, previewer->Enable(static_cast<IVeldranInput*>(nullptr)));
  EXPECT_EQ(nullptr, Previewer::sCurrent.load());
  mCard.results["SetScreenPreviewCallback"] = kVeldranFail;
  Util::CapturedStderr captured;
  EXPECT_EQ(kVeldranFail, previewer->Enable(mCapture->mInput));
  EXPECT_EQ("*** Enable[#]: SetScreenPreviewCallback returned -2147483646\n", captured.Text());
  EXPECT_EQ(previewer, Previewer::sCurrent.load()) << "sCurrent keeps pointing at it";
  previewer->Release();
}

TEST_F(PreviewerTest, SetViewBeforeSetDisplayOnlyReportsANullRectangle) {
  Previewer* previewer = Previewer::Create();
  Util::CapturedStderr captured;
  previewer->SetView(nullptr);
  prFloatRect whole = {0, 0, 1, 1};
  previewer->SetView(&whole);
  EXPECT_EQ("*** SetView[#]: Invalid view pointer\n", captured.Text());
  EXPECT_EQ(0, PreviewViews());
  previewer->Release();
}

// A frame delivered while no view exists, before any display position or after one without
// a host view, is dropped without a word: no view is made for it, it is not held, and it is
// not handed over later, when a view comes; the next frame is.
TEST_F(PreviewerTest, AFrameWithoutAViewIsDroppedSilently) {
  Previewer* previewer = Previewer::Create();
  FakeFrame* frame = new FakeFrame;
  pmDisplayPos noHostView = Display();
  noHostView.window = nullptr;
  Util::CapturedStderr captured;
  EXPECT_EQ(0, previewer->DrawFrame(frame));
  previewer->SetDisplay(&noHostView);
  EXPECT_EQ(0, previewer->DrawFrame(frame));
  EXPECT_EQ(0, previewer->DrawFrame(nullptr));
  EXPECT_EQ("", captured.Text());
  EXPECT_EQ(0, PreviewViews()) << "no view is made for a frame";
  EXPECT_EQ(2, frame->AddRef()) << "the previewer holds no reference to the frame";
  frame->Release();
  pmDisplayPos display = Display();
  previewer->SetDisplay(&display);
  prFloatRect whole = {0, 0, 1, 1};
  previewer->SetView(&whole);
  RunGuiThreadWork();
  ASSERT_EQ(1, PreviewViews());
  EXPECT_EQ(0, sFramesSet) << "the dropped frames do not follow once there is a view";
  EXPECT_EQ(0, previewer->DrawFrame(frame));
  EXPECT_EQ(1, sFramesSet) << "the next frame goes to the view's helper";
  frame->Release();
  previewer->Release();
  RunGuiThreadWork();
}

TEST_F(PreviewerTest, ViewIsPlacedOnceAndLaterViewsOnlyUpdateTheProjection) {
  Previewer* previewer = Previewer::Create();
  pmDisplayPos display = Display();
  previewer->SetDisplay(&display);
  prFloatRect whole = {0, 0, 1, 1};
  previewer->SetView(&whole);
  ASSERT_EQ(1, PreviewViews());
  PreviewGLView* view = ShownView();
  EXPECT_EQ(mHostView.rect(), view->geometry());
  EXPECT_EQ((std::array<double, 4>{-1, 1, -1, 1}), view->Projection()) << "the whole picture: identity";
  // Left, top, right, bottom: glOrtho's left, right, bottom and top are 2 * each - 1.
  prFloatRect part = {0.125f, 0.25f, 0.75f, 0.875f};
  previewer->SetView(&part);
  EXPECT_EQ(1, PreviewViews());
  EXPECT_EQ(view, ShownView()) << "the same view, still in place";
  EXPECT_EQ((std::array<double, 4>{-0.75, 0.5, -0.5, 0.75}), view->Projection());
  FakeFrame* frame = new FakeFrame;
  EXPECT_EQ(0, previewer->DrawFrame(frame));
  EXPECT_EQ(1, sFramesSet) << "with a view the frame goes to the helper";
  frame->Release();
  previewer->Release();
  RunGuiThreadWork();  // the view goes on the GUI thread
  EXPECT_EQ(0, PreviewViews());
}

// The display rectangle's four integers go to the viewport as they are: x is the second, y
// the first, width and height the third and fourth. A zero width or height stays zero.
TEST_F(PreviewerTest, TheDisplayRectangleGoesToTheViewportUnchanged) {
  Previewer* previewer = Previewer::Create();
  pmDisplayPos display = Display();
  previewer->SetDisplay(&display);
  prFloatRect whole = {0, 0, 1, 1};
  previewer->SetView(&whole);
  PreviewGLView* view = ShownView();
  ASSERT_NE(nullptr, view);
  EXPECT_EQ((std::array<int, 4>{0, 0, 320, 180}), view->Viewport());
  struct Case {
    std::array<int32_t, 4> rect;
    std::array<int, 4> viewport;
  };
  const Case cases[] = {
      {{10, 20, 160, 90}, {20, 10, 160, 90}},
      {{10, 20, 0, 90}, {20, 10, 0, 90}},
      {{0, 0, 320, 0}, {0, 0, 320, 0}},
      {{-4, -3, 100, 50}, {-3, -4, 100, 50}},
  };
  for (const Case& c : cases) {
    for (int i = 0; i < 4; ++i) display.rect[i] = c.rect[i];
    previewer->SetDisplay(&display);
    EXPECT_EQ(c.viewport, view->Viewport()) << display.rect[0] << " " << display.rect[1] << " " << display.rect[2]
                                            << " " << display.rect[3];
  }
  previewer->Release();
  RunGuiThreadWork();
}

// A preview view left in the host's view, directly or deeper down, is taken out of it but
// not deleted: its owner deletes it.
TEST_F(PreviewerTest, ALeftoverViewIsTakenOutWhenANewOneIsPlaced) {
  for (bool nested : {false, true}) {
    QWidget* container = new QWidget(&mHostView);
    QPointer<QWidget> leftover = new QWidget(nested ? container : &mHostView);
    leftover->setObjectName(PreviewGLView::kTagName);
    leftover->show();
    Previewer* previewer = Previewer::Create();
    pmDisplayPos display = Display();
    previewer->SetDisplay(&display);
    prFloatRect whole = {0, 0, 1, 1};
    previewer->SetView(&whole);
    RunGuiThreadWork();
    EXPECT_EQ(1, PreviewViews()) << "nested " << nested;
    EXPECT_NE(nullptr, ShownView());
    ASSERT_FALSE(leftover.isNull()) << "taken out, not deleted; nested " << nested;
    EXPECT_EQ(nullptr, leftover->parentWidget());
    EXPECT_FALSE(leftover->isVisible());
    delete leftover.data();
    previewer->Release();
    RunGuiThreadWork();
    delete container;
  }
}

// Each previewer owns its view: the second one takes the first's view out of the host's
// view, and the first can still draw into it and delete it.
TEST_F(PreviewerTest, TwoPreviewersShareOneHostView) {
  Previewer* first = Previewer::Create();
  Previewer* second = Previewer::Create();
  pmDisplayPos display = Display();
  prFloatRect whole = {0, 0, 1, 1};
  first->SetDisplay(&display);
  first->SetView(&whole);
  QPointer<PreviewGLView> firstView = ShownView();
  ASSERT_FALSE(firstView.isNull());
  second->SetDisplay(&display);
  second->SetView(&whole);
  RunGuiThreadWork();
  QPointer<PreviewGLView> secondView = ShownView();
  EXPECT_EQ(1, PreviewViews());
  ASSERT_FALSE(secondView.isNull());
  EXPECT_NE(firstView, secondView);
  // Drawn into before anything else is asked of it: a view deleted under its previewer
  // shows here, as a use after free under AddressSanitizer.
  FakeFrame* frame = new FakeFrame;
  EXPECT_EQ(0, first->DrawFrame(frame));
  EXPECT_EQ(1, sFramesSet) << "the first view's helper still takes frames";
  ASSERT_FALSE(firstView.isNull()) << "the first previewer's view is still its own";
  EXPECT_EQ(nullptr, firstView->parentWidget());
  first->Release();
  RunGuiThreadWork();
  EXPECT_TRUE(firstView.isNull()) << "deleted by its previewer";
  EXPECT_EQ(secondView, ShownView()) << "the second view stays in place";
  EXPECT_EQ(0, second->DrawFrame(frame));
  EXPECT_EQ(2, sFramesSet);
  frame->Release();
  second->Release();
  RunGuiThreadWork();
  EXPECT_TRUE(secondView.isNull());
  EXPECT_EQ(0, PreviewViews());
}

// A host view that goes first leaves the preview view to its previewer.
TEST_F(PreviewerTest, AHostViewThatGoesLeavesThePreviewViewToItsPreviewer) {
  QWidget* host = new QWidget;
  host->resize(320, 180);
  Previewer* previewer = Previewer::Create();
  pmDisplayPos display = Display();
  display.window = host;
  previewer->SetDisplay(&display);
  prFloatRect whole = {0, 0, 1, 1};
  previewer->SetView(&whole);
  QPointer<PreviewGLView> view = host->findChild<PreviewGLView*>(PreviewGLView::kTagName);
  ASSERT_FALSE(view.isNull());
  delete host;
  FakeFrame* frame = new FakeFrame;
  EXPECT_EQ(0, previewer->DrawFrame(frame));  // a use after free if the view went with the host
  EXPECT_EQ(1, sFramesSet);
  ASSERT_FALSE(view.isNull()) << "not deleted with the host's view";
  EXPECT_EQ(nullptr, view->parentWidget());
  frame->Release();
  previewer->Release();
  RunGuiThreadWork();
  EXPECT_TRUE(view.isNull());
}

TEST_F(PreviewerTest, WithoutAPreviewHelperNoViewIsMade) {
  SetVeldranEntryPointsForTesting(VeldranEntryPoints());
  Previewer* previewer = Previewer::Create();
  pmDisplayPos display = Display();
  Util::CapturedStderr captured;
  previewer->SetDisplay(&display);
  EXPECT_EQ("*** -[PreviewGLView initWithFrame:][#]: CreateOpenGLScreenPreviewHelper failed\n"
            "*** SetDisplay[#]: Failed to initialise a PreviewGLView instance\n",
            captured.Text());
  EXPECT_EQ(0, PreviewViews());
  previewer->Release();
}

// A previewer that could not make a view of its own still takes a leftover preview view out of
// the host's view it is given, without deleting it.
TEST_F(PreviewerTest, WithoutAViewOfItsOwnALeftoverIsStillTakenOut) {
  QPointer<QWidget> leftover = new QWidget(&mHostView);
  leftover->setObjectName(PreviewGLView::kTagName);
  leftover->show();
  SetVeldranEntryPointsForTesting(VeldranEntryPoints());
  Previewer* previewer = Previewer::Create();
  pmDisplayPos display = Display();
  Util::CapturedStderr captured;
  previewer->SetDisplay(&display);
  EXPECT_NE("", captured.Text()) << "no view was made";
  prFloatRect whole = {0, 0, 1, 1};
  previewer->SetView(&whole);
  RunGuiThreadWork();
  EXPECT_EQ(0, PreviewViews()) << "the leftover is out of the host's view";
  ASSERT_FALSE(leftover.isNull()) << "taken out, not deleted";
  EXPECT_EQ(nullptr, leftover->parentWidget());
  EXPECT_FALSE(leftover->isVisible());
  delete leftover.data();
  previewer->Release();
}

}  // namespace
}  // namespace KTN
