// A recorded take checked by the host program's verify: the sidecar its recording wrote and FFmpeg's framehash both accepted, a changed picture or sound packet named, what cannot be checked refused, the disk read even when the cache holds the take, a sidecar written, and a copy checked elsewhere.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "Capture/VeldranAPILoader.h"
#include "FrameHash/FrameHashFile.h"
#include "FrameHash/TakePackets.h"
#include "Movie/MovieLock.h"
#include "Movie/MovieSummary.h"
#include "Simulator/SimulatedCardLoader.h"
#include "Testing/MovieProbe.h"
#include "Util/PageCache.h"
#include "Util/ScratchFolder.h"
#include "tests/HostProgramProcess.h"
#include "tests/HostProgramTest.h"

extern char** environ;

namespace KTN {
namespace {

namespace fs = std::filesystem;

// What a run of the host program said and how it ended.
struct Ran {
  int status = -1;
  std::string out, err;
  uint64_t blocksRead = 0;  // 512-byte units it read from storage (ru_inblock)
  int Exit() const { return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1; }
};

// Runs the host program with its output and standard error in files of folder, for two
// minutes at most; the storage it read is told by the children's usage across its run.
Ran RunProgram(const std::vector<std::string>& arguments, const std::string& folder) {
  struct rusage before = {}, after = {};
  getrusage(RUSAGE_CHILDREN, &before);
  const std::string outFile = folder + "/stdout.txt", errFile = folder + "/stderr.txt";
  pid_t pid = fork();
  if (pid == 0) {
    int out = open(outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int err = open(errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(out, 1);
    dup2(err, 2);
    ExecHostProgram(arguments);
  }
  Ran ran;
  ran.status = WaitFor(pid, 120);
  if (ran.status == -1) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
  getrusage(RUSAGE_CHILDREN, &after);
  ran.blocksRead = static_cast<uint64_t>(after.ru_inblock - before.ru_inblock);
  ran.out = ReadText(outFile);
  ran.err = ReadText(errFile);
  return ran;
}

// The data lines of a sidecar, one stream's.
std::vector<std::string> DataLines(const std::string& path, int stream) {
  FrameHashFile file;
  EXPECT_EQ(file.Read(path), 0) << path;
  std::vector<std::string> lines;
  for (const FrameHashLine& line : file.Stream(stream)) lines.push_back(line.Text());
  return lines;
}

// Flips one bit of the movie's byte at offset; flipped back when this ends.
class FlippedByte {
 public:
  FlippedByte(const std::string& path, uint64_t offset) : mPath(path), mOffset(offset) { Flip(); }
  ~FlippedByte() { Flip(); }

 private:
  void Flip() {
    int fd = open(mPath.c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    uint8_t byte = 0;
    ASSERT_EQ(pread(fd, &byte, 1, static_cast<off_t>(mOffset)), 1);
    byte ^= 0x01;
    ASSERT_EQ(pwrite(fd, &byte, 1, static_cast<off_t>(mOffset)), 1);
    fdatasync(fd);
    close(fd);
  }
  std::string mPath;
  uint64_t mOffset;
};

// One take of two seconds of 1080i50 10-bit with sound (about 280 MB), recorded once on the
// disk for all the tests, with the sidecar its recording wrote. Each test leaves both as it
// found them.
class VerifyTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (!fs::exists(std::string(kVeldranAPIBundlePath) + "/Contents/Linux/VeldranAPI.so")) return;
    sFolder.reset(new Util::ScratchFolder(Util::ScratchFolder::Where::kDisk));
    setenv("XDG_CONFIG_HOME", sFolder->Path().c_str(), 1);
    SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "1"}});
    sMovie = sFolder->File("take.mov");
    Ran recorded = RunProgram({"record", "-o", sMovie, "--seconds", "2", "--standard", "HD 1080i 50", "--format",
                        "Uncompressed 10-bit 4:2:2"},
                       sFolder->Path());
    sRecorded = recorded.Exit() == 0 && fs::is_regular_file(FrameHashSidecarPath(sMovie));
    if (!sRecorded) sWhy = recorded.err;
  }
  static void TearDownTestSuite() { sFolder.reset(); }

  void SetUp() override {
    ASSERT_TRUE(fs::exists(std::string(kVeldranAPIBundlePath) + "/Contents/Linux/VeldranAPI.so"))
        << "the simulated card is not installed: run scripts/install-simulated-card";
    ASSERT_TRUE(sRecorded) << "the take or its sidecar could not be made: " << sWhy;
    ASSERT_EQ(take.Read(sMovie), 0);
    ASSERT_EQ(summary.Read(sMovie), 0);
    ASSERT_EQ(summary.pictures, 50u);
    ASSERT_EQ(summary.soundFrames, 96000u);
    ASSERT_TRUE(summary.hasTimecode);
  }

  std::vector<TakePacket> Packets(int stream) const {
    std::vector<TakePacket> chosen;
    for (const TakePacket& packet : take.packets) {
      if (packet.stream == stream) chosen.push_back(packet);
    }
    return chosen;
  }

  Util::ScratchFolder mOutput;  // each run's output
  TakePackets take;
  MovieSummary summary;
  static std::unique_ptr<Util::ScratchFolder> sFolder;
  static std::string sMovie, sWhy;
  static bool sRecorded;
};

std::unique_ptr<Util::ScratchFolder> VerifyTest::sFolder;
std::string VerifyTest::sMovie, VerifyTest::sWhy;
bool VerifyTest::sRecorded = false;

TEST_F(VerifyTest, ATakeMatchesFfmpegsFrameHashes) {
  Ran ran = RunProgram({"verify", sMovie}, mOutput.Path());
  EXPECT_EQ(ran.Exit(), 0) << ran.err;
  EXPECT_EQ(ran.out, "verified 50 pictures and 96000 sound samples\n");
  EXPECT_EQ(UserLines(ran.err), std::vector<std::string>{}) << ran.err;
}

TEST_F(VerifyTest, AChangedPictureIsNamedWithItsTimecode) {
  const int k = 37;
  const TakePacket picture = Packets(0).at(k);
  FlippedByte flipped(sMovie, picture.offset + picture.size / 3);
  Ran ran = RunProgram({"verify", sMovie}, mOutput.Path());
  EXPECT_EQ(ran.Exit(), 1) << ran.err;
  EXPECT_EQ(ran.out, "");
  EXPECT_EQ(UserLines(ran.err),
            std::vector<std::string>{"kestrin-capture: take.mov differs from its sidecar: picture 37 (" +
                                     TimecodeAt25(FrameAt25(summary.startTimecode) + k) +
                                     ") is the first bad one; 1 picture and 0 sound packets differ"})
      << ran.err;
}

TEST_F(VerifyTest, AChangedSoundPacketIsNamedWithItsTime) {
  const TakePacket sound = Packets(1).at(61);
  FlippedByte flipped(sMovie, sound.offset + 7);
  Ran ran = RunProgram({"verify", sMovie}, mOutput.Path());
  EXPECT_EQ(ran.Exit(), 1) << ran.err;
  char seconds[32];
  snprintf(seconds, sizeof seconds, "%.3f s", sound.dts / 48000.0);
  const int slot = static_cast<int>(sound.dts / 1920);  // 1920 sample frames a frame slot at 25
  EXPECT_EQ(UserLines(ran.err), std::vector<std::string>{"kestrin-capture: take.mov differs from its sidecar: sound from "
                                                         "sample frame " + std::to_string(sound.dts) + " (" + seconds +
                                                         ", " + TimecodeAt25(FrameAt25(summary.startTimecode) + slot) +
                                                         "); 0 pictures and 1 sound packet differ"})
      << ran.err;
}

TEST_F(VerifyTest, WhatCannotBeCheckedIsRefusedInOneLine) {
  const std::string sidecar = FrameHashSidecarPath(sMovie), aside = sMovie + ".aside";
  ASSERT_EQ(rename(sidecar.c_str(), aside.c_str()), 0);
  Ran ran = RunProgram({"verify", sMovie}, mOutput.Path());
  ASSERT_EQ(rename(aside.c_str(), sidecar.c_str()), 0);
  EXPECT_EQ(ran.Exit(), 6);
  EXPECT_EQ(ran.err, "kestrin-capture: cannot verify " + sMovie +
                         ": it has no sidecar take.mov.framehash (make one with kestrin-capture verify --write)\n");

  {
    // A take being written: this process holds its one-writer lock, as the recording server does.
    int writer = open(sMovie.c_str(), O_RDONLY);
    ASSERT_GE(writer, 0);
    ASSERT_EQ(MovieLock::TryLock(writer), 0);
    ran = RunProgram({"verify", sMovie}, mOutput.Path());
    close(writer);
    EXPECT_EQ(ran.Exit(), 6);
    EXPECT_EQ(LinesWith(ran.err, "cannot verify " + sMovie + ": it is being written by process " +
                                     std::to_string(getpid()))
                  .size(),
              1u)
        << ran.err;
    EXPECT_EQ(UserLines(ran.err).size(), 1u) << ran.err;
  }

  ran = RunProgram({"verify", mOutput.File("none.mov")}, mOutput.Path());
  EXPECT_EQ(ran.Exit(), 6);
  EXPECT_EQ(UserLines(ran.err).size(), 1u) << ran.err;
  ran = RunProgram({"verify", "--fast", sMovie}, mOutput.Path());
  EXPECT_EQ(ran.Exit(), 6);
  EXPECT_EQ(UserLines(ran.err).size(), 1u) << ran.err;
}

// A take the page cache holds whole is still read from the disk: the child read at least its
// samples' bytes from storage.
TEST_F(VerifyTest, ATakeInTheCacheIsReadFromTheDisk) {
  int fd = open(sMovie.c_str(), O_RDONLY);
  ASSERT_GE(fd, 0);
  ASSERT_FALSE(Util::PageCache::IsMemoryBacked(fd)) << "the scratch folder must be on a disk";
  std::vector<char> buffer(8 << 20);
  while (read(fd, buffer.data(), buffer.size()) > 0) {
  }
  const uint64_t size = take.fileSize;
  ASSERT_GE(Util::PageCache::ResidentBytes(fd, size), size / 10 * 9) << "the take is in the cache";
  uint64_t sampleBytes = 0;
  for (const TakePacket& packet : take.packets) sampleBytes += packet.size;
  Ran ran = RunProgram({"verify", sMovie}, mOutput.Path());
  close(fd);
  EXPECT_EQ(ran.Exit(), 0) << ran.err;
  EXPECT_GE(ran.blocksRead * 512, sampleBytes) << "verify read the cache, not the disk";
}

TEST_F(VerifyTest, WriteMakesFfmpegsLinesAndThenVerifies) {
  const std::string sidecar = FrameHashSidecarPath(sMovie), recorded = sMovie + ".recorded";
  const std::string ffmpegs = mOutput.File("ffmpeg.framehash");
  {
    std::string text, error;
    ASSERT_EQ(FfmpegFrameHashes(sMovie, mOutput.Path(), text, error), 0) << error;
    std::ofstream(ffmpegs) << text;
  }
  ASSERT_EQ(rename(sidecar.c_str(), recorded.c_str()), 0);
  Ran ran = RunProgram({"verify", "--write", sMovie}, mOutput.Path());
  Ran again = RunProgram({"verify", "--write", sMovie}, mOutput.Path());
  Ran checked = RunProgram({"verify", sMovie}, mOutput.Path());
  std::vector<std::string> written[2] = {DataLines(sidecar, 0), DataLines(sidecar, 1)};
  // FFmpeg's own framehash of the take is accepted as its sidecar, as it is.
  fs::copy_file(ffmpegs, sidecar, fs::copy_options::overwrite_existing);
  Ran ffmpegChecked = RunProgram({"verify", sMovie}, mOutput.Path());
  ASSERT_EQ(rename(recorded.c_str(), sidecar.c_str()), 0);
  EXPECT_EQ(ran.Exit(), 0) << ran.err;
  EXPECT_EQ(ran.out, "wrote the sidecar " + sidecar + " of 50 pictures and 96000 sound samples\n");
  EXPECT_EQ(again.Exit(), 6);
  EXPECT_EQ(UserLines(again.err).size(), 1u) << again.err;
  EXPECT_EQ(checked.Exit(), 0) << checked.err;
  EXPECT_EQ(checked.out, "verified 50 pictures and 96000 sound samples\n");
  EXPECT_EQ(ffmpegChecked.Exit(), 0) << ffmpegChecked.err;
  EXPECT_EQ(ffmpegChecked.out, "verified 50 pictures and 96000 sound samples\n");
  for (int stream : {0, 1}) {
    EXPECT_EQ(written[stream], DataLines(ffmpegs, stream)) << "stream " << stream;
  }
  EXPECT_EQ(written[0].size(), 50u);
  EXPECT_EQ(written[1].size(), 100u);
}

// After an offload: the movie and its sidecar copied to another place verify there.
TEST_F(VerifyTest, ACopyWithItsSidecarVerifies) {
  Util::ScratchFolder copy(Util::ScratchFolder::Where::kMemory);
  const std::string moved = copy.File("offloaded.mov");
  fs::copy_file(sMovie, moved);
  fs::copy_file(FrameHashSidecarPath(sMovie), FrameHashSidecarPath(moved));
  Ran ran = RunProgram({"verify", moved}, mOutput.Path());
  EXPECT_EQ(ran.Exit(), 0) << ran.err;
  EXPECT_EQ(ran.out, "verified 50 pictures and 96000 sound samples\n");
}

}  // namespace
}  // namespace KTN
