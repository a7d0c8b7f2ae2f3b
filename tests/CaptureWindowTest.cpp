// The capture window under a virtual X server with Mesa's software OpenGL: the live preview of
// the simulated card, and the options dialog over a dark host. Screenshots are kept as test
// artifacts.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QColor>
#include <QImage>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "Capture/VeldranAPILoader.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

namespace fs = std::filesystem;

// A virtual X server on a free display, for the test's life.
class VirtualDisplay {
 public:
  VirtualDisplay() {
    // A display number nobody uses (no lock file), from 90 up, away from real displays.
    int number = 90;
    while (number < 200 && fs::exists("/tmp/.X" + std::to_string(number) + "-lock")) ++number;
    std::string display = ":" + std::to_string(number);
    mPid = fork();
    if (mPid == 0) {
      int null = open("/dev/null", O_WRONLY);
      dup2(null, 2);
      execlp("Xvfb", "Xvfb", display.c_str(), "-screen", "0", "1280x1024x24", "-nolisten", "tcp",
             static_cast<char*>(nullptr));
      _exit(127);
    }
    // Ready once its socket is there (at most ten seconds).
    std::string socket = "/tmp/.X11-unix/X" + std::to_string(number);
    for (int i = 0; i < 1200 && !fs::exists(socket); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    if (fs::exists(socket)) mDisplay = display;
  }
  ~VirtualDisplay() {
    if (mPid > 0) {
      kill(mPid, SIGTERM);
      waitpid(mPid, nullptr, 0);
    }
  }
  const std::string& Name() const { return mDisplay; }

 private:
  pid_t mPid = -1;
  std::string mDisplay;
};

class CaptureWindowTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(fs::exists(std::string(kVeldranAPIBundlePath) + "/Contents/Linux/VeldranAPI.so"))
        << "the simulated card is not installed: run scripts/install-simulated-card";
    ASSERT_FALSE(mDisplay.Name().empty()) << "Xvfb did not start";
    mScratch.reset(new Util::ScratchFolder);
    mFolder = mScratch->Path();
    fs::create_directories(TEST_ARTIFACTS);
  }
  void TearDown() override { mScratch.reset(); }

  // Runs the capture window with options; its exit status.
  int RunWindow(const std::vector<std::string>& options) {
    pid_t child = fork();
    if (child == 0) {
      setenv("DISPLAY", mDisplay.Name().c_str(), 1);
      setenv("QT_QPA_PLATFORM", "xcb", 1);
      setenv("LIBGL_ALWAYS_SOFTWARE", "1", 1);
      setenv("XDG_CONFIG_HOME", mFolder.c_str(), 1);  // the default settings, not the user's
      setenv("XDG_RUNTIME_DIR", mFolder.c_str(), 1);
      std::vector<char*> argv = {const_cast<char*>(KESTRIN_CAPTURE), const_cast<char*>("gui")};
      for (const std::string& option : options) argv.push_back(const_cast<char*>(option.c_str()));
      argv.push_back(nullptr);
      execv(KESTRIN_CAPTURE, argv.data());
      _exit(127);
    }
    int status = 0;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (waitpid(child, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > deadline) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return -1;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  VirtualDisplay mDisplay;
  std::unique_ptr<Util::ScratchFolder> mScratch;
  std::string mFolder;
};

bool Near(QColor got, int r, int g, int b, int tolerance) {
  return std::abs(got.red() - r) <= tolerance && std::abs(got.green() - g) <= tolerance &&
         std::abs(got.blue() - b) <= tolerance;
}

TEST_F(CaptureWindowTest, PreviewShowsTheSevenBars) {
  std::string shot = std::string(TEST_ARTIFACTS) + "/capture-window-preview.png";
  fs::remove(shot);
  ASSERT_EQ(0, RunWindow({"-o", mFolder + "/unused.mov", "--screenshot-preview", shot, "--quit-after", "3"}));
  QImage preview(QString::fromStdString(shot));
  ASSERT_FALSE(preview.isNull()) << shot;
  const int bars[7][3] = {{191, 191, 191}, {191, 191, 0}, {0, 191, 191}, {0, 191, 0},
                          {191, 0, 191},   {191, 0, 0},   {0, 0, 191}};
  int y = preview.height() / 4;  // well inside the bars (top two thirds)
  for (int bar = 0; bar < 7; ++bar) {
    QColor got = preview.pixelColor(preview.width() * (2 * bar + 1) / 14, y);
    EXPECT_TRUE(Near(got, bars[bar][0], bars[bar][1], bars[bar][2], 8))
        << "bar " << bar << ": " << got.red() << "," << got.green() << "," << got.blue();
  }
  QColor below = preview.pixelColor(preview.width() - 4, preview.height() - 4);
  EXPECT_TRUE(Near(below, 0, 0, 0, 8)) << "black below the bars";
}

TEST_F(CaptureWindowTest, OptionsDialogBlendsIntoADarkHost) {
  std::string shot = std::string(TEST_ARTIFACTS) + "/options-dialog-dark-host.png";
  fs::remove(shot);
  ASSERT_EQ(0, RunWindow({"-o", mFolder + "/unused.mov", "--grey", "60", "--screenshot-options", shot, "--quit-after", "4"}));
  QImage dialog(QString::fromStdString(shot));
  ASSERT_FALSE(dialog.isNull()) << shot;
  EXPECT_TRUE(Near(dialog.pixelColor(2, 2), 60, 60, 60, 0)) << "the host's grey as background";
  // The labels, left of the menus, are drawn light (0.75 white) on the dark background.
  int light = 0;
  for (int x = 0; x < dialog.width() / 3; ++x) {
    for (int y = 0; y < dialog.height() * 2 / 3; ++y) light += dialog.pixelColor(x, y).lightness() > 150;
  }
  EXPECT_GT(light, 50) << "lightened label text";
}

}  // namespace
}  // namespace KTN
