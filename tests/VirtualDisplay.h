// Test support: a virtual X server (Xvfb) on a free display, for tests of what is drawn.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

namespace KTN {

// A virtual X server on a free display, for the test's life.
class VirtualDisplay {
 public:
  VirtualDisplay() {
    // A display number nobody uses (no lock file), from 90 up, away from real displays.
    int number = 90;
    while (number < 200 && std::filesystem::exists("/tmp/.X" + std::to_string(number) + "-lock")) ++number;
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
    for (int i = 0; i < 1200 && !std::filesystem::exists(socket); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    if (std::filesystem::exists(socket)) mDisplay = display;
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

}  // namespace KTN
