// A test of the host program run as users run it: the simulated card installed, a scratch folder of its own, the user's choices kept out of the real defaults.
#pragma once

#include <gtest/gtest.h>

#include <stdint.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Capture/VeldranAPILoader.h"
#include "Simulator/SimulatedCardLoader.h"
#include "Util/ScratchFolder.h"
#include "Util/TimeCode.h"
#include "Util/TimecodeText.h"
#include "tests/HostProgramProcess.h"

namespace KTN {

// Timecodes counted at 25 frames a second, as the takes of PAL and 1080i50 carry them: the
// frame count of "HH:MM:SS:FF" (-1 when text is not such a timecode), and the timecode of a
// frame count.
inline int64_t FrameAt25(const std::string& text) {
  Util::TimeCode tc = {};
  if (!Util::TimecodeText::Parse(text, 25, false, tc, nullptr)) return -1;
  return Util::ConvertTimeCodeToFrameCount(&tc);
}
inline std::string TimecodeAt25(int64_t frame) {
  Util::TimeCode tc = {};
  tc.framesPerSecond = 25;
  Util::ConvertFrameCountToTimeCode(static_cast<unsigned>(frame), &tc);
  char text[12];
  Util::ConvertTimeCodeToString(&tc, text);
  return text;
}

// Each test gets a fresh scratch folder (mFolder, removed after it however it ends), which is
// also its XDG_CONFIG_HOME, and the simulated card at real time.
class HostProgramTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(std::filesystem::exists(std::string(kVeldranAPIBundlePath) + "/Contents/Linux/VeldranAPI.so"))
        << "the simulated card is not installed: run scripts/install-simulated-card";
    mScratch.reset(new Util::ScratchFolder);
    mFolder = mScratch->Path();
    ASSERT_FALSE(mFolder.empty());
    setenv("XDG_CONFIG_HOME", mFolder.c_str(), 1);  // the user's choices stay out of the real defaults
    SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "1"}});
  }
  void TearDown() override { mScratch.reset(); }

  // Records movie with the host program ("record -o movie" and options) and expects a
  // complete take: the program ended within seconds, with exit status 0.
  void RecordTake(const std::string& movie, const std::vector<std::string>& options, double seconds = 60) {
    std::vector<std::string> arguments = {"record", "-o", movie};
    arguments.insert(arguments.end(), options.begin(), options.end());
    std::string error;
    const int status = RunHostProgram(arguments, mFolder, seconds, error);
    ASSERT_NE(-1, status) << "the host program hung: " << error;
    ASSERT_TRUE(WIFEXITED(status)) << error;
    ASSERT_EQ(0, WEXITSTATUS(status)) << error;
  }

  std::unique_ptr<Util::ScratchFolder> mScratch;
  std::string mFolder;
};

}  // namespace KTN
