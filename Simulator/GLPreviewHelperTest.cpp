// Tests of the simulated card's OpenGL preview helper in an offscreen context (Mesa's
// surfaceless EGL with a pbuffer: no display needed).
#include <gtest/gtest.h>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GL/gl.h>

#include <vector>

#include "Capture/VeldranAPILoader.h"
#include "Simulator/PixelRows.h"
#include "Simulator/SimulatedModes.h"
#include "Simulator/TestSignal.h"

namespace KTN {
namespace {

constexpr int kViewWidth = 140;
constexpr int kViewHeight = 90;

// A current legacy OpenGL context rendering into a kViewWidth x kViewHeight pbuffer.
class OffscreenContext {
 public:
  OffscreenContext() {
    auto getPlatformDisplay =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (!getPlatformDisplay) return;
    mDisplay = getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    if (!eglInitialize(mDisplay, nullptr, nullptr)) return;
    const EGLint attributes[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_RED_SIZE, 8, EGL_GREEN_SIZE, 8,
                                 EGL_BLUE_SIZE, 8, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_NONE};
    EGLConfig config;
    EGLint count = 0;
    if (!eglChooseConfig(mDisplay, attributes, &config, 1, &count) || count < 1) return;
    const EGLint size[] = {EGL_WIDTH, kViewWidth, EGL_HEIGHT, kViewHeight, EGL_NONE};
    mSurface = eglCreatePbufferSurface(mDisplay, config, size);
    eglBindAPI(EGL_OPENGL_API);
    mContext = eglCreateContext(mDisplay, config, EGL_NO_CONTEXT, nullptr);
    mReady = mSurface && mContext && eglMakeCurrent(mDisplay, mSurface, mSurface, mContext);
  }
  ~OffscreenContext() {
    if (mDisplay) {
      eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
      if (mContext) eglDestroyContext(mDisplay, mContext);
      if (mSurface) eglDestroySurface(mDisplay, mSurface);
      eglTerminate(mDisplay);
    }
  }
  bool Ready() const { return mReady; }

 private:
  EGLDisplay mDisplay = EGL_NO_DISPLAY;
  EGLSurface mSurface = EGL_NO_SURFACE;
  EGLContext mContext = EGL_NO_CONTEXT;
  bool mReady = false;
};

// A picture held by the test, behind the device API's frame interface.
class FakeVideoFrame : public IVeldranVideoFrame {
 public:
  FakeVideoFrame(int width, int height, uint32_t format, std::vector<uint8_t> bytes)
      : mWidth(width), mHeight(height), mFormat(format), mBytes(std::move(bytes)) {}
  VeldranResult QueryInterface(VeldranIID, void**) override { return kVeldranNoInterface; }
  int32_t AddRef() override { return ++mReferences; }
  int32_t Release() override { return --mReferences; }  // lives on the test's stack
  int32_t GetWidth() override { return mWidth; }
  int32_t GetHeight() override { return mHeight; }
  int32_t GetRowBytes() override { return static_cast<int32_t>(Sim::FrameRowBytes(mFormat, mWidth)); }
  uint32_t GetPixelFormat() override { return mFormat; }
  uint32_t GetFlags() override { return 0; }
  VeldranResult GetBytes(void** buffer) override {
    *buffer = mBytes.data();
    return kVeldranOK;
  }
  int32_t mReferences = 1;

 private:
  int mWidth, mHeight;
  uint32_t mFormat;
  std::vector<uint8_t> mBytes;
};

// The colour at a point of the view, (0, 0) its top left.
std::vector<int> PixelAt(int x, int yFromTop) {
  unsigned char rgba[4] = {0, 0, 0, 0};
  glReadPixels(x, kViewHeight - 1 - yFromTop, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
  return {rgba[0], rgba[1], rgba[2]};
}

void ExpectNear(const std::vector<int>& expected, const std::vector<int>& got, int tolerance, const char* what) {
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(expected[c], got[c], tolerance) << what << " component " << c;
}

class GLPreviewHelperTest : public testing::TestWithParam<uint32_t> {};

TEST_P(GLPreviewHelperTest, PaintsTheLatestFrameOverTheViewport) {
  OffscreenContext context;
  ASSERT_TRUE(context.Ready()) << "no offscreen OpenGL (Mesa's EGL) on this machine";
  VeldranEntryPoints entryPoints = LoadVeldranAPI(SIMULATED_CARD_BUNDLE);
  ASSERT_NE(nullptr, entryPoints.createOpenGLPreview);
  IVeldranGLScreenPreviewHelper* helper = entryPoints.createOpenGLPreview();
  ASSERT_NE(nullptr, helper);
  glViewport(0, 0, kViewWidth, kViewHeight);
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  glClearColor(0, 0, 1, 1);
  glClear(GL_COLOR_BUFFER_BIT);
  EXPECT_EQ(kVeldranOK, helper->InitializeGL());
  EXPECT_EQ(kVeldranOK, helper->PaintGL());
  ExpectNear({0, 0, 255}, PixelAt(70, 45), 0, "before the first frame nothing is painted");

  uint32_t format = GetParam();
  const Sim::SimulatedMode& mode = *Sim::FindSimulatedMode(ktnModeHD1080p25);
  Sim::TestSignal signal(mode, format);
  std::vector<uint8_t> picture(signal.FrameBytes());
  signal.Render(0, picture.data());
  FakeVideoFrame frame(mode.width, mode.height, format, picture);
  EXPECT_EQ(kVeldranOK, helper->SetFrame(&frame));
  EXPECT_EQ(2, frame.mReferences) << "the helper keeps the frame";
  EXPECT_EQ(kVeldranOK, helper->PaintGL());
  // 75% bars across the top two thirds, black below (left of the box at picture 0).
  const std::vector<int> bars[7] = {{191, 191, 191}, {191, 191, 0}, {0, 191, 191}, {0, 191, 0},
                                    {191, 0, 191},   {191, 0, 0},   {0, 0, 191}};
  for (int bar = 0; bar < 7; ++bar) ExpectNear(bars[bar], PixelAt(kViewWidth * (2 * bar + 1) / 14, 20), 4, "bar");
  ExpectNear({0, 0, 0}, PixelAt(kViewWidth - 5, kViewHeight - 3), 2, "black below the bars");

  EXPECT_EQ(kVeldranOK, helper->SetFrame(nullptr));
  EXPECT_EQ(1, frame.mReferences) << "a new frame lets go of the old one";
  EXPECT_EQ(0, helper->Release());
}

INSTANTIATE_TEST_SUITE_P(EveryCaptureFormat, GLPreviewHelperTest,
                         testing::Values(ktnFormat8BitYUV, ktnFormat10BitYUV, ktnFormat10BitRGB),
                         [](const testing::TestParamInfo<uint32_t>& info) {
                           return info.param == ktnFormat8BitYUV ? "twovuy" : info.param == ktnFormat10BitYUV ? "v210" : "r210";
                         });

}  // namespace
}  // namespace KTN
