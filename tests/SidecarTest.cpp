// The frame-hash sidecar of real takes, checked against FFmpeg's own hashes of the finished
// movie: every codec family, sound or none at every sample size, dropped frames, a server
// killed mid-take and its movie repaired, a frame limit above 30 fps, a take recorded over.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <regex>
#include <string>
#include <vector>

#include "Capture/VeldranAPILoader.h"
#include "FrameHash/FrameHashFile.h"
#include "FrameHash/FrameHashLine.h"
#include "Movie/MovieSummary.h"
#include "Signal/TakeSignal.h"
#include "Simulator/SimulatedCardLoader.h"
#include "Testing/MovieProbe.h"
#include "Util/ScratchFolder.h"
#include "tests/HostProgramProcess.h"
#include "tests/HostProgramTest.h"

namespace KTN {
namespace {

namespace fs = std::filesystem;

// What every sidecar starts with, as FFmpeg's framehash output does.
constexpr char kFormatLines[] = "#format: frame checksums\n#version: 2\n#hash: murmur3\n";

// PAL's 8-bit 4:2:2 picture: the takes waited on by their size.
constexpr uintmax_t kPalFrameBytes = 829440;

// The data lines of a framehash text, each without its line feed, by stream, in order.
using StreamLines = std::map<int, std::vector<std::string>>;

// Splits text into its data lines by stream; '#' lines are passed over. A line that is
// neither is named in bad (the first one only).
StreamLines DataLines(const std::string& text, std::string& bad) {
  StreamLines streams;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    const std::string line = text.substr(start, end - start);
    start = end + 1;
    if (line.empty() || line[0] == '#') continue;
    FrameHashLine parsed;
    if (!parsed.Parse(line.data(), line.size())) {
      if (bad.empty()) bad = line;
      continue;
    }
    streams[parsed.stream].push_back(line);
  }
  return streams;
}

// A data line read as a FrameHashLine (a test failure when it is not one).
FrameHashLine Parsed(const std::string& line) {
  FrameHashLine parsed;
  EXPECT_TRUE(parsed.Parse(line.data(), line.size())) << line;
  return parsed;
}

// One stream's lines (none when it has none).
const std::vector<std::string>& Lines(const StreamLines& streams, int stream) {
  static const std::vector<std::string> kNone;
  auto found = streams.find(stream);
  return found == streams.end() ? kNone : found->second;
}

// A movie's sidecar against FFmpeg's hashes of the movie.
struct SidecarCheck {
  StreamLines sidecar;
  StreamLines ffmpeg;
  // Empty when every stream's lines are equal, line for line; otherwise the first line that
  // differs in each stream that differs, as each side has it.
  std::string difference;
};

// Reads the sidecar of movie and runs FFmpeg on movie (in folder); a test failure when either
// cannot be read, when the sidecar does not start with the format's lines or holds a line
// that is neither a comment nor a packet's.
SidecarCheck CheckSidecar(const std::string& movie, const std::string& folder) {
  SidecarCheck check;
  const std::string path = FrameHashSidecarPath(movie);
  EXPECT_EQ(movie + ".framehash", path);
  EXPECT_TRUE(fs::is_regular_file(path)) << "no sidecar beside " << movie;
  const std::string sidecarText = ReadText(path);
  EXPECT_EQ(kFormatLines, sidecarText.substr(0, sizeof kFormatLines - 1)) << "the sidecar starts with\n"
                                                                          << sidecarText.substr(0, 200);
  FrameHashFile file;
  EXPECT_EQ(0, file.Read(path)) << path;
  EXPECT_FALSE(file.torn) << "the sidecar ends in a cut-off line";
  std::string bad;
  check.sidecar = DataLines(sidecarText, bad);
  EXPECT_EQ("", bad) << "a line of the sidecar that is neither a comment nor a packet's";

  std::string ffmpegText, ffmpegError;
  const int status = FfmpegFrameHashes(movie, folder, ffmpegText, ffmpegError);
  EXPECT_EQ(0, status) << "ffmpeg failed on " << movie << ": " << ffmpegError;
  EXPECT_EQ(kFormatLines, ffmpegText.substr(0, sizeof kFormatLines - 1)) << "FFmpeg's output starts so too";
  std::string ffmpegBad;
  check.ffmpeg = DataLines(ffmpegText, ffmpegBad);
  EXPECT_EQ("", ffmpegBad) << "a line of FFmpeg's output this test cannot read";
  EXPECT_FALSE(check.ffmpeg.empty()) << "FFmpeg read no packet of " << movie << ": " << ffmpegError;

  std::map<int, bool> streams;
  for (const auto& stream : check.sidecar) streams[stream.first] = true;
  for (const auto& stream : check.ffmpeg) streams[stream.first] = true;
  for (const auto& stream : streams) {
    const std::vector<std::string>& ours = Lines(check.sidecar, stream.first);
    const std::vector<std::string>& theirs = Lines(check.ffmpeg, stream.first);
    for (size_t i = 0; i < std::max(ours.size(), theirs.size()); ++i) {
      const std::string* mine = i < ours.size() ? &ours[i] : nullptr;
      const std::string* ffmpeg = i < theirs.size() ? &theirs[i] : nullptr;
      if (mine && ffmpeg && *mine == *ffmpeg) continue;
      check.difference += "stream " + std::to_string(stream.first) + ": " + std::to_string(ours.size()) +
                          " lines in the sidecar, " + std::to_string(theirs.size()) + " from ffmpeg; first difference at line " +
                          std::to_string(i) + ":\n  sidecar: " + (mine ? *mine : "(none)") +
                          "\n  ffmpeg:  " + (ffmpeg ? *ffmpeg : "(none)") + "\n";
      break;
    }
  }
  return check;
}

MovieSummary Summary(const std::string& movie) {
  MovieSummary summary;
  EXPECT_EQ(0, summary.Read(movie)) << movie;
  return summary;
}

// The host program's arguments that record into movie.
std::vector<std::string> Record(const std::string& movie, const std::vector<std::string>& options) {
  std::vector<std::string> arguments = {"record", "-o", movie};
  arguments.insert(arguments.end(), options.begin(), options.end());
  return arguments;
}

// The words of a command line as a shell reads them: words apart by spaces, quoted with ''
// (and '\'' for a quote inside).
std::vector<std::string> ShellWords(const std::string& line) {
  std::vector<std::string> words;
  std::string word;
  bool inWord = false, quoted = false;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (quoted) {
      if (c == '\'') quoted = false;
      else word += c;
    } else if (c == '\'') {
      quoted = inWord = true;
    } else if (c == '\\' && i + 1 < line.size()) {
      word += line[++i];
      inWord = true;
    } else if (c == ' ') {
      if (inWord) words.push_back(word);
      word.clear();
      inWord = false;
    } else {
      word += c;
      inWord = true;
    }
  }
  if (inWord) words.push_back(word);
  return words;
}

class SidecarTest : public HostProgramTest {
 protected:
  // A copy of the plug-in bundle whose server writes slowly (each write held back 60 ms, a
  // backlog of two frames of backlogFrameBytes): it has to drop frames, however fast this
  // machine is.
  std::string SlowServerBundle(uintmax_t backlogFrameBytes) {
    const std::string bundle = mFolder + "/Slow.bundle";
    fs::create_directories(bundle + "/Contents/Linux");
    fs::create_directories(bundle + "/Contents/Resources");
    fs::copy_file(std::string(KESTRIN_BUNDLE) + "/Contents/Linux/KestrinCapture.so",
                  bundle + "/Contents/Linux/KestrinCapture.so");
    const std::string server = bundle + "/Contents/Resources/QTRecordServer";
    FILE* script = fopen(server.c_str(), "w");
    EXPECT_NE(nullptr, script) << server;
    if (!script) return bundle;
    fprintf(script, "#!/bin/sh\nexec '%s/Contents/Resources/QTRecordServer' --write-delay-ms 60 --backlog-bytes %ju\n",
            KESTRIN_BUNDLE, 2 * backlogFrameBytes);
    fclose(script);
    fs::permissions(server, fs::perms::owner_all);
    return bundle;
  }
};

// ---- Every codec family, with sound of every size and without ----

struct Take {
  const char* name;
  std::vector<std::string> options;  // the host program's, the frame limit included
  uint32_t soundFrameBytes;          // one sample frame of sound, every channel's sample; 0: no sound
};

std::ostream& operator<<(std::ostream& out, const Take& take) { return out << take.name; }

class EveryFormatTest : public SidecarTest, public testing::WithParamInterface<Take> {};

TEST_P(EveryFormatTest, SidecarHoldsFfmpegsLinesOfTheTake) {
  const Take& take = GetParam();
  const std::string movie = mFolder + "/take.mov";
  ASSERT_NO_FATAL_FAILURE(RecordTake(movie, take.options));
  const SidecarCheck check = CheckSidecar(movie, mFolder);
  EXPECT_EQ("", check.difference);
  // The take holds what was asked for: its pictures, and its sound at that size or none.
  const MovieSummary summary = Summary(movie);
  EXPECT_GT(summary.pictures, 0u);
  ASSERT_EQ(1u, check.ffmpeg.count(0));
  EXPECT_EQ(summary.pictures, check.ffmpeg.at(0).size());
  if (take.soundFrameBytes == 0) {
    EXPECT_EQ(1u, check.ffmpeg.size()) << "a take without sound has only its pictures";
  } else {
    ASSERT_EQ(2u, check.ffmpeg.size());
    ASSERT_FALSE(check.ffmpeg.at(1).empty());
    // The sound's timescale is its rate: a packet's bytes are its duration's sample frames.
    const FrameHashLine first = Parsed(check.ffmpeg.at(1).front());
    EXPECT_EQ(first.duration * take.soundFrameBytes, first.size) << check.ffmpeg.at(1).front();
    EXPECT_GT(check.ffmpeg.at(1).size(), 1u) << "sound of several packets";
  }
}

// A sample frame of `channels` channels of `bits`, in bytes.
constexpr uint32_t SoundFrame(uint32_t channels, uint32_t bits) { return channels * bits / 8; }

INSTANTIATE_TEST_SUITE_P(
    Takes, EveryFormatTest,
    testing::Values(
        Take{"Uncompressed8BitSound16", {"--standard", "PAL 4x3", "--format", "Uncompressed 8-bit 4:2:2", "--bits", "16", "--frames", "12"}, SoundFrame(2, 16)},
        Take{"Uncompressed8BitNoSound", {"--standard", "NTSC 4x3", "--format", "Uncompressed 8-bit 4:2:2", "--no-audio", "--frames", "12"}, 0},
        Take{"Uncompressed10BitSound24", {"--standard", "PAL 4x3", "--format", "Uncompressed 10-bit 4:2:2", "--bits", "24", "--frames", "12"}, SoundFrame(2, 24)},
        Take{"UncompressedRgbSound32", {"--standard", "HD 1080p 25", "--format", "Uncompressed RGB 10-bit 4:4:4", "--bits", "32", "--frames", "8"}, SoundFrame(2, 32)},
        Take{"JpegEightChannels", {"--standard", "HD 1080i 50", "--format", "JPEG", "--channels", "8", "--bits", "24", "--frames", "8"}, SoundFrame(8, 24)},
        Take{"DvPalNoSound", {"--standard", "PAL 4x3", "--format", "DV PAL", "--no-audio", "--frames", "12"}, 0},
        Take{"DvNtscSound16", {"--standard", "NTSC 4x3", "--format", "DV NTSC", "--bits", "16", "--frames", "12"}, SoundFrame(2, 16)},
        Take{"Dvcpro50Sound24", {"--standard", "PAL 16x9", "--format", "DVCPRO50 PAL", "--bits", "24", "--frames", "12"}, SoundFrame(2, 24)},
        Take{"DvcproHd1080Sound16", {"--standard", "HD 1080i 50", "--format", "DVCPROHD 1080i50", "--bits", "16", "--frames", "8"}, SoundFrame(2, 16)},
        Take{"DvcproHd720Sound32", {"--standard", "HD 720p 59.94", "--format", "DVCPROHD 720p60", "--bits", "32", "--frames", "6"}, SoundFrame(2, 32)}),
    [](const testing::TestParamInfo<Take>& info) { return std::string(info.param.name); });

// ---- The sidecar's own lines ----

TEST_F(SidecarTest, SidecarStartsWithTheFormatItsVersionAndItsHash) {
  const std::string movie = mFolder + "/header.mov";
  ASSERT_NO_FATAL_FAILURE(RecordTake(movie, {"--standard", "PAL 4x3", "--format", "JPEG", "--frames", "4"}));
  const std::string text = ReadText(FrameHashSidecarPath(movie));
  ASSERT_FALSE(text.empty()) << "no sidecar beside " << movie;
  EXPECT_EQ("#format: frame checksums\n#version: 2\n#hash: murmur3\n", text.substr(0, sizeof kFormatLines - 1));
  // Every comment line comes before the first packet's.
  const size_t firstData = text.find("\n0,");
  ASSERT_NE(std::string::npos, firstData) << text.substr(0, 400);
  EXPECT_EQ(std::string::npos, text.find("\n#", firstData)) << "a comment line among the packets' lines";
}

// ---- Dropped frames ----

// Frames the server drops leave empty slots; the picture before them lasts over them, in the
// movie as in its sidecar line.
TEST_F(SidecarTest, TakeWithDroppedFramesHasTheLengthenedPicturesInItsSidecar) {
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "2"}});
  const std::string movie = mFolder + "/dropped.mov";
  ASSERT_NO_FATAL_FAILURE(RecordTake(movie, {"--standard", "PAL 4x3", "--format", "Uncompressed 8-bit 4:2:2",
                                             "--frames", "40", "--plugin", SlowServerBundle(kPalFrameBytes)}));
  const MovieSummary summary = Summary(movie);
  ASSERT_GT(summary.EmptySlots(), 0u) << "the slow server dropped no frame: " << summary.pictures << " pictures in "
                                      << summary.pictureSlots << " slots";
  const SidecarCheck check = CheckSidecar(movie, mFolder);
  EXPECT_EQ("", check.difference);
  ASSERT_EQ(1u, check.ffmpeg.count(0));
  EXPECT_EQ(summary.pictures, check.ffmpeg.at(0).size());
  bool lengthened = false;
  for (const std::string& line : check.ffmpeg.at(0)) {
    lengthened = lengthened || Parsed(line).duration > static_cast<int64_t>(summary.frameDuration);
  }
  EXPECT_TRUE(lengthened) << "no picture lasts over an empty slot";

  // The take's events name exactly those empty slots as dropped, and nothing else.
  const int64_t slot = static_cast<int64_t>(summary.frameDuration);
  std::string expected;
  for (const std::string& line : check.ffmpeg.at(0)) {
    const FrameHashLine picture = Parsed(line);
    if (picture.duration <= slot) continue;
    SignalEvent dropped;
    dropped.kind = SignalEvent::Kind::kDropped;
    dropped.slot = picture.pts / slot + 1;
    dropped.frames = picture.duration / slot - 1;
    expected += dropped.Line();
  }
  TakeSignal signal(movie);
  ASSERT_EQ(0, signal.Update());
  std::string found;
  for (const SignalEvent& event : signal.EventsBySlot()) found += event.Line();
  EXPECT_EQ(expected, found);
}

// ---- A frame limit above 30 frames a second (frame pairs) ----

TEST_F(SidecarTest, FrameLimitAt720p5994TakesItsFramePairs) {
  const std::string movie = mFolder + "/720p.mov";
  ASSERT_NO_FATAL_FAILURE(RecordTake(movie, {"--standard", "HD 720p 59.94", "--format", "Uncompressed 8-bit 4:2:2",
                                             "--bits", "24", "--frames", "10"}));
  const MovieSummary summary = Summary(movie);
  EXPECT_EQ(20u, summary.pictureSlots);
  const SidecarCheck check = CheckSidecar(movie, mFolder);
  EXPECT_EQ("", check.difference);
  ASSERT_EQ(2u, check.ffmpeg.size());
  EXPECT_EQ(summary.pictures, check.ffmpeg.at(0).size());
}

TEST_F(SidecarTest, FrameLimitAt1080p50TakesItsFramePairs) {
  const std::string movie = mFolder + "/1080p50.mov";
  ASSERT_NO_FATAL_FAILURE(
      RecordTake(movie, {"--standard", "HD 1080p 50", "--format", "JPEG", "--bits", "16", "--frames", "8"}));
  const MovieSummary summary = Summary(movie);
  EXPECT_EQ(16u, summary.pictureSlots);
  const SidecarCheck check = CheckSidecar(movie, mFolder);
  EXPECT_EQ("", check.difference);
  ASSERT_EQ(2u, check.ffmpeg.size());
  EXPECT_EQ(summary.pictures, check.ffmpeg.at(0).size());
}

// ---- A server killed mid-take, the movie repaired ----

// Moves every thread of pid onto one processor, where it runs only when nothing else would
// (SCHED_IDLE), and the calling thread onto the same processor; the calling thread's own
// processors are put back when this ends. A thread woken there by what pid does runs at once,
// before pid's next instruction.
class SharedProcessor {
 public:
  explicit SharedProcessor(pid_t pid) {
    if (sched_getaffinity(0, sizeof mOwn, &mOwn) != 0) return;
    int chosen = -1;
    for (int cpu = 0; cpu < CPU_SETSIZE && chosen < 0; ++cpu) {
      if (CPU_ISSET(cpu, &mOwn)) chosen = cpu;
    }
    if (chosen < 0) return;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(chosen, &one);
    std::error_code ignored;
    for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task", ignored)) {
      const pid_t thread = static_cast<pid_t>(atoi(task.path().filename().c_str()));
      const struct sched_param idle = {};
      sched_setaffinity(thread, sizeof one, &one);
      sched_setscheduler(thread, SCHED_IDLE, &idle);
    }
    mMoved = sched_setaffinity(0, sizeof one, &one) == 0;
  }
  ~SharedProcessor() {
    if (mMoved) sched_setaffinity(0, sizeof mOwn, &mOwn);
  }
  SharedProcessor(const SharedProcessor&) = delete;
  SharedProcessor& operator=(const SharedProcessor&) = delete;

 private:
  cpu_set_t mOwn;
  bool mMoved = false;
};

// Kills pid as soon as the file at path grows by a line starting with prefix: pid is then
// between that line and what follows it. Woken by each write to the file (inotify) on pid's
// processor, before pid goes on; for seconds at most. false if no such line came.
bool KillOnLine(pid_t pid, const std::string& path, const std::string& prefix, double seconds) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const int watch = inotify_init1(IN_CLOEXEC);
  if (fd < 0 || watch < 0 || inotify_add_watch(watch, path.c_str(), IN_MODIFY) < 0) {
    if (fd >= 0) close(fd);
    if (watch >= 0) close(watch);
    return false;
  }
  SharedProcessor shared(pid);
  struct stat status = {};
  off_t known = fstat(fd, &status) == 0 ? status.st_size : 0;
  std::string start(prefix.size(), '\0');
  bool killed = false;
  alignas(struct inotify_event) char events[4096];
  for (auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
       !killed && std::chrono::steady_clock::now() < until;) {
    struct pollfd ready = {watch, POLLIN, 0};
    if (poll(&ready, 1, 100) <= 0) continue;
    if (fstat(fd, &status) == 0 && status.st_size > known) {
      // The lines are appended whole: the first new one starts where the file ended.
      if (pread(fd, &start[0], start.size(), known) == static_cast<ssize_t>(start.size()) && start == prefix) {
        killed = kill(pid, SIGKILL) == 0;
      }
      known = status.st_size;
    }
    if (read(watch, events, sizeof events) < 0) break;
  }
  close(watch);
  close(fd);
  return killed;
}

class KilledTakeTest : public SidecarTest {
 protected:
  // Records PAL 8-bit with 24-bit sound into name, kills the server with kill, repairs the
  // movie as the host program's failure line says and checks the sidecar of the repaired
  // movie. torn (if given) says whether the kill left a picture's line in the sidecar without
  // the whole picture in the movie.
  void KillRepairAndCheck(const std::string& name, const std::function<bool(pid_t server, const std::string& movie)>& kill,
                          bool* torn = nullptr) {
    const std::string movie = mFolder + "/" + name;
    // At most ten seconds of PAL 8-bit (about 210 MB) should the kill never come.
    StoppedAtEnd host{StartHostProgram(Record(movie, {"--standard", "PAL 4x3", "--format", "Uncompressed 8-bit 4:2:2",
                                                      "--bits", "24", "--seconds", "10"}),
                                       mFolder)};
    const pid_t server = ServerOf(host.child.pid);
    ASSERT_GT(server, 0) << ReadText(host.child.errorFile);
    ASSERT_TRUE(WaitForBytes(movie, 5 * kPalFrameBytes)) << ReadText(host.child.errorFile);
    ASSERT_TRUE(kill(server, movie)) << "the server could not be killed: " << ReadText(host.child.errorFile);
    const int status = WaitFor(host.child.pid, 60);
    ASSERT_NE(-1, status) << "the host program hung";
    const std::string error = ReadText(host.child.errorFile);
    ASSERT_TRUE(WIFEXITED(status)) << error;
    ASSERT_EQ(8, WEXITSTATUS(status)) << error;
    EXPECT_TRUE(fs::exists(FrameHashSidecarPath(movie))) << "the killed take left no sidecar";

    // Whether the kill cut a picture whose line was in the sidecar already.
    MovieSummary kept;
    FrameHashFile before;
    if (torn && kept.Read(movie) == 0 && before.Read(FrameHashSidecarPath(movie)) == 0) {
      *torn = before.Stream(0).size() > kept.pictures;
    }

    // Repair as the failure line says.
    const std::vector<std::string> lines = UserLines(error);
    ASSERT_EQ(1u, lines.size()) << error;
    std::smatch said;
    ASSERT_TRUE(std::regex_search(lines[0], said, std::regex("; kestrin-capture (repair .*) finishes it$"))) << lines[0];
    const std::vector<std::string> repair = ShellWords(said[1].str());
    ASSERT_GE(repair.size(), 2u) << lines[0];
    EXPECT_EQ(movie, repair.back()) << lines[0];
    std::string repairError;
    const int repaired = RunHostProgram(repair, mFolder, 60, repairError);
    ASSERT_NE(-1, repaired) << "repair hung";
    ASSERT_TRUE(WIFEXITED(repaired)) << repairError;
    ASSERT_EQ(0, WEXITSTATUS(repaired)) << repairError;

    const MovieSummary summary = Summary(movie);
    EXPECT_EQ(MovieSummary::Layout::kFinished, summary.layout);
    EXPECT_GE(summary.pictures, 4u);
    const SidecarCheck check = CheckSidecar(movie, mFolder);
    EXPECT_EQ("", check.difference);
    ASSERT_EQ(2u, check.ffmpeg.size());
    EXPECT_EQ(summary.pictures, check.ffmpeg.at(0).size());
  }
};

// Killed once frames are written (between two samples, most likely): the repaired movie's
// last picture and sound are described as FFmpeg reads them.
TEST_F(KilledTakeTest, KilledBetweenFramesRepairedHasTheSidecarOfWhatItHolds) {
  KillRepairAndCheck("killed.mov", [&](pid_t server, const std::string& movie) {
    return WaitForBytes(movie, 10 * kPalFrameBytes) && kill(server, SIGKILL) == 0;
  });
}

// Killed just after a picture's line reached the sidecar, while its bytes are on their way to
// the movie: the repaired sidecar describes no picture the movie does not hold whole. The kill
// lands within the picture's write (the server waits on the processor of this test's thread,
// which its write of the line wakes); should the machine let the server finish the picture
// first all the same, up to three takes are made until one is cut.
TEST_F(KilledTakeTest, KilledAfterAPicturesLineRepairedHasTheSidecarOfWhatItHolds) {
  bool torn = false;
  for (int take = 0; take < 3 && !torn && !HasFailure(); ++take) {
    KillRepairAndCheck("cut" + std::to_string(take) + ".mov", [&](pid_t server, const std::string& movie) {
      return KillOnLine(server, FrameHashSidecarPath(movie), "0,", 5);
    }, &torn);
  }
}

// ---- A take recorded over ----

// record -y replaces the movie and its sidecar: nothing of the old take's lines is left.
TEST_F(SidecarTest, TakeRecordedOverReplacesItsSidecar) {
  const std::string movie = mFolder + "/again.mov";
  ASSERT_NO_FATAL_FAILURE(RecordTake(movie, {"--standard", "PAL 4x3", "--format", "Uncompressed 10-bit 4:2:2",
                                             "--bits", "24", "--frames", "20"}));
  const SidecarCheck first = CheckSidecar(movie, mFolder);
  EXPECT_EQ("", first.difference);
  ASSERT_EQ(1u, first.ffmpeg.count(0));
  ASSERT_NO_FATAL_FAILURE(RecordTake(movie, {"-y", "--standard", "PAL 4x3", "--format", "Uncompressed 8-bit 4:2:2",
                                             "--bits", "16", "--frames", "5"}));
  const SidecarCheck second = CheckSidecar(movie, mFolder);
  EXPECT_EQ("", second.difference);
  ASSERT_EQ(2u, second.ffmpeg.size());
  EXPECT_EQ(Summary(movie).pictures, second.ffmpeg.at(0).size());
  EXPECT_LT(second.ffmpeg.at(0).size(), first.ffmpeg.at(0).size()) << "the second take is the shorter";
}

}  // namespace
}  // namespace KTN
