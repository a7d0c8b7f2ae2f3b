// End to end: a take whose fixed segment name another process holds, stalled or hostile, keeps its promises.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "Core/FakeStalledHolder.h"
#include "Core/SegmentLock.h"
#include "Core/SharedMemory.h"
#include "Host/PluginHost.h"
#include "Host/PluginSession.h"
#include "Movie/MovieSummary.h"
#include "Settings/CaptureTables.h"
#include "Simulator/SimulatedCardLoader.h"
#include "Util/ScratchFolder.h"
#include "tests/HostProgramProcess.h"

namespace KTN {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using Core::FakeStalledHolder;

// PAL 4x3 in 2vuy, 25 frames a second: one frame's bytes.
constexpr uintmax_t kPalFrameBytes = 829440;
const char kDroppedFramesText[] = "Recording to disk (WARNING: Dropped frames detected)";

// How long the other process holds the video segment's name: longer than the two seconds
// after which the wait names it, and than the two and a half seconds of pictures the queue
// holds, so that pictures are given up.
constexpr auto kHold = std::chrono::seconds(4);

// The user another user's holder runs as (root may become it).
constexpr uid_t kNobody = 65534;
uid_t OtherUser() { return geteuid() == 0 ? kNobody : static_cast<uid_t>(-1); }

// The entries of /dev/shm of the fixed segment names: the segments and anything beside them.
std::vector<std::string> FixedNameEntries() {
  std::vector<std::string> found;
  const std::string prefix = std::string(kVideoShmKey).substr(0, std::string(kVideoShmKey).rfind('.'));
  for (const auto& entry : fs::directory_iterator("/dev/shm")) {
    const std::string name = entry.path().filename().string();
    if (name.rfind(prefix, 0) == 0) found.push_back(name);
  }
  return found;
}

// Waits until the movie at path holds frames' bytes (the take has begun), for a minute at most.
bool WaitForFrames(const std::string& path, int frames) {
  return WaitForBytes(path, kPalFrameBytes * static_cast<uintmax_t>(frames));
}

// The largest count of dropped frames the status lines of text showed.
long MostDroppedShown(const std::string& text) {
  long most = -1;
  const std::regex dropped("\\| ([0-9]+) dropped \\|");
  for (std::sregex_iterator it(text.begin(), text.end(), dropped), end; it != end; ++it) {
    most = std::max(most, std::stol((*it)[1].str()));
  }
  return most;
}

class SharedSegmentNameTest : public testing::Test {
 protected:
  void SetUp() override {
    mScratch.reset(new Util::ScratchFolder);
    mFolder = mScratch->Path();
    setenv("XDG_CONFIG_HOME", mFolder.c_str(), 1);  // the user's choices stay out of the real defaults
    SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "1"}});  // the card's own rate: 25 frames a second
  }
  void TearDown() override { mScratch.reset(); }

  std::unique_ptr<Util::ScratchFolder> mScratch;
  std::string mFolder;
};

// The host program asked for 200 frames (eight seconds) while another user's process takes
// the video segment's name for four seconds and stalls: the movie holds exactly 200 slots,
// the pictures given up during the wait are reported in the status line and at the end, and
// one line names the holder. Its death frees the name; nothing is left beside the segments.
TEST_F(SharedSegmentNameTest, AHostProgramKeepsItsFrameLimitAndReportsItsDropsWhileAnotherUserHoldsTheName) {
  const std::string movie = mFolder + "/held.mov";
  StoppedAtEnd host;
  host.child = StartHostProgram({"record", "-o", movie, "--standard", "PAL 4x3", "--format", "0", "--frames", "200"},
                                mFolder);
  ASSERT_TRUE(WaitForFrames(movie, 10)) << ReadText(host.child.errorFile);
  pid_t holderPid = -1;
  {
    FakeStalledHolder holder(kVideoShmKey, FakeStalledHolder::Use::kHold, OtherUser());
    holderPid = holder.Pid();
    ASSERT_GT(holderPid, 0) << "the name was taken";
    std::this_thread::sleep_for(kHold);
    ASSERT_EQ(0, waitpid(host.child.pid, nullptr, WNOHANG)) << "the take went on through the wait";
    ASSERT_TRUE(holder.Alive());
  }  // killed outright
  const int status = WaitFor(host.child.pid, 120);
  const std::string error = ReadText(host.child.errorFile);
  ASSERT_TRUE(WIFEXITED(status)) << error;
  host.child.pid = -1;
  EXPECT_EQ(0, WEXITSTATUS(status)) << error;

  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(movie));
  EXPECT_EQ(200u, summary.pictureSlots) << "the frames asked for, however long the name was held\n" << error;
  EXPECT_LT(summary.pictures, 200u) << "pictures were given up while the name was held";
  EXPECT_GT(MostDroppedShown(error), 0) << "the status line counts the slots given up\n" << error;
  EXPECT_EQ(1u, LinesWith(error, "kestrin-capture: WARNING: frames were dropped").size()) << error;

  const std::vector<std::string> named = LinesWith(error, "The name of segment " + std::string(kVideoShmKey));
  ASSERT_EQ(1u, named.size()) << "one line for the wait\n" << error;
  EXPECT_NE(std::string::npos, named[0].find(" by process " + std::to_string(holderPid) + " (stalled-holder) of user "))
      << named[0];
  if (OtherUser() == kNobody) {
    EXPECT_NE(std::string::npos, named[0].find(" of user nobody;")) << named[0];
  }

  EXPECT_EQ(std::vector<std::string>(), FixedNameEntries());
  Core::SegmentLock lock(kVideoShmKey);
  EXPECT_EQ(0, lock.Acquire(Clock::now())) << "free once its holder was killed";
}

// A name held for longer than the rest of the take: the host program's count goes on with
// the slots given up, and the take ends at exactly the 100 frames asked for while the name is
// still held, rather than waiting for it and then taking every slot of the wait at once.
TEST_F(SharedSegmentNameTest, AHostProgramEndsAtItsCountWhileTheNameIsStillHeld) {
  const std::string movie = mFolder + "/ended.mov";
  StoppedAtEnd host;
  host.child = StartHostProgram({"record", "-o", movie, "--standard", "PAL 4x3", "--format", "0", "--frames", "100"},
                                mFolder);
  ASSERT_TRUE(WaitForFrames(movie, 10)) << ReadText(host.child.errorFile);
  FakeStalledHolder holder(kVideoShmKey, FakeStalledHolder::Use::kHold, OtherUser());
  const pid_t holderPid = holder.Pid();
  ASSERT_GT(holderPid, 0) << "the name was taken";
  int status = WaitFor(host.child.pid, 60);
  EXPECT_NE(-1, status) << "the take ended while the name was held";
  EXPECT_TRUE(holder.Alive());
  holder.Kill();
  if (status == -1) status = WaitFor(host.child.pid, 120);
  const std::string error = ReadText(host.child.errorFile);
  ASSERT_TRUE(WIFEXITED(status)) << error;
  host.child.pid = -1;
  EXPECT_EQ(0, WEXITSTATUS(status)) << error;
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(movie));
  EXPECT_EQ(100u, summary.pictureSlots) << error;
  EXPECT_LT(summary.pictures, 100u);
  EXPECT_EQ(1u, LinesWith(error, "kestrin-capture: WARNING: frames were dropped").size()) << error;
  EXPECT_EQ(1u, LinesWith(error, " by process " + std::to_string(holderPid) + " (stalled-holder)").size()) << error;
}

// While the name is held, the plug-in's reports say at once that frames were dropped, and
// their count goes on growing with the slots given up, before the wait has ended; the host
// counting the slots then stops at exactly its count.
TEST_F(SharedSegmentNameTest, SlotsGivenUpWhileTheNameIsHeldAreReportedAsTheyHappen) {
  PluginHost host;
  ASSERT_EQ("", host.Load(KESTRIN_BUNDLE));
  PluginSession session(host, SignedCaptureSettings(4, 0, 2, 16, 48000));  // PAL 4x3, 2vuy
  ASSERT_EQ("", session.Open());
  ASSERT_EQ("", session.Activate());
  RecordRequest request;
  request.moviePath = mFolder + "/reported.mov";
  request.frames = 150;  // six seconds, counted here as the host program counts them
  ASSERT_EQ("", session.StartRecording(request));
  // Services the recording as the host program does until done() or a minute has passed.
  auto serviceUntil = [&session](const std::function<bool()>& done) {
    for (auto until = Clock::now() + std::chrono::minutes(1); Clock::now() < until;) {
      int32_t rc = session.Service();
      if (rc != rmNoErr) {
        ADD_FAILURE() << "the service call returned " << rc;
        return false;
      }
      if (done()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  };
  ASSERT_TRUE(serviceUntil([&] { return session.FramesRecorded() >= 10; }));
  {
    FakeStalledHolder holder(kVideoShmKey, FakeStalledHolder::Use::kHold, OtherUser());
    ASSERT_GT(holder.Pid(), 0);
    const int64_t atHold = session.FramesRecorded();
    EXPECT_TRUE(serviceUntil([&] {
      return session.StatusText() == kDroppedFramesText && session.FramesRecorded() >= atHold + 25;
    })) << "reported " << session.FramesRecorded() << " frames (" << atHold << " when the name was taken): "
        << session.StatusText();
    EXPECT_TRUE(holder.Alive()) << "all of it while the name is still held";
  }
  ASSERT_TRUE(serviceUntil([&] { return session.FramesRecorded() >= 150; }));
  EXPECT_EQ(150, session.FramesRecorded()) << "every report grew by one frame at most";
  EXPECT_EQ("", session.StopRecording());
  session.Close();
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(request.moviePath));
  EXPECT_EQ(150u, summary.pictureSlots);
  EXPECT_LT(summary.pictures, 150u);
}

// The host program killed outright in the middle of a take leaves no lock behind: the name is
// free at once, and nothing lies beside the segments but, at worst, a segment it was handing
// over (which the next recording removes).
TEST_F(SharedSegmentNameTest, AHostProgramKilledOutrightLeavesNoLockBehind) {
  const std::string movie = mFolder + "/killed.mov";
  StoppedAtEnd host;
  host.child = StartHostProgram({"record", "-o", movie, "--standard", "PAL 4x3", "--format", "0", "--frames", "500"},
                                mFolder);
  ASSERT_TRUE(WaitForFrames(movie, 10)) << ReadText(host.child.errorFile);
  const pid_t server = ServerOf(host.child.pid);
  kill(host.child.pid, SIGKILL);
  waitpid(host.child.pid, nullptr, 0);
  host.child.pid = -1;
  Core::SegmentLock lock(kVideoShmKey);
  EXPECT_EQ(0, lock.Acquire(Clock::now())) << "free as soon as its holder is gone";
  lock.Release();
  for (const std::string& entry : FixedNameEntries()) {
    EXPECT_TRUE(entry == kVideoShmKey || entry == kAudioShmKey) << entry << " left behind";
    shm_unlink(entry.c_str());  // a segment it was handing over: as the next recording would
  }
  // The server finishes the movie once its host has gone.
  for (auto until = Clock::now() + std::chrono::minutes(1); server > 0 && kill(server, 0) == 0 && Clock::now() < until;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  if (server > 0 && kill(server, 0) == 0) {
    ADD_FAILURE() << "the server did not end";
    kill(server, SIGKILL);
  }
}

}  // namespace
}  // namespace KTN
