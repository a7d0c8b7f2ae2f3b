// End to end: the real plug-in bundle as the editor loads it, the simulated card at the
// driver's path (scripts/install-simulated-card), and the real recording server.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <pwd.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <memory>
#include <ostream>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "Capture/VeldranAPILoader.h"
#include "Core/SharedMemory.h"
#include "FrameHash/FrameHashLine.h"
#include "Host/PluginHost.h"
#include "Host/RecordSession.h"
#include "Movie/MovieSidecars.h"
#include "Movie/MovieSummary.h"
#include "Testing/MovieProbe.h"
#include "Settings/CaptureTables.h"
#include "Simulator/SimulatedCardLoader.h"
#include "Simulator/SimulatedModes.h"
#include "Simulator/TestSignal.h"
#include "Util/FourCC.h"
#include "Util/CapturedStderr.h"
#include "Util/ScratchFolder.h"
#include "Util/SmallDisk.h"
#include "Util/TimeCode.h"
#include "tests/HostProgramProcess.h"

namespace KTN {
namespace {

namespace fs = std::filesystem;
using Util::FourCC;

bool CardInstalled() {
  return fs::exists(std::string(kVeldranAPIBundlePath) + "/Contents/Linux/VeldranAPI.so");
}

std::string Spelled(uint32_t code) {
  return std::string{static_cast<char>(code >> 24), static_cast<char>(code >> 16), static_cast<char>(code >> 8),
                     static_cast<char>(code)};
}

// A signed settings record of a standard row and format row.
CaptureSettings Settings(int standard, int format, int channels = 2, int bits = 16) {
  return SignedCaptureSettings(standard, format, channels, bits, 48000);
}

class EndToEndTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(CardInstalled()) << "the simulated card is not installed: run scripts/install-simulated-card";
    mScratch.reset(new Util::ScratchFolder);
    mFolder = mScratch->Path();
    setenv("XDG_CONFIG_HOME", mFolder.c_str(), 1);  // the user's choices stay out of the real defaults
  }
  void TearDown() override { mScratch.reset(); }

  // One recording through the bundle with the card configured as given.
  RecordOutcome Record(const CaptureSettings& settings, RecordRequest request,
                       std::initializer_list<SimulatedCardSetting> card, const std::string& bundle = KESTRIN_BUNDLE) {
    SetSimulatedCardEnvironment(card);
    // A card an earlier test of this process loaded re-reads its settings.
    std::string library = std::string(kVeldranAPIBundlePath) + "/Contents/Linux/VeldranAPI.so";
    if (void* loaded = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD)) {
      if (auto reload = reinterpret_cast<void (*)()>(dlsym(loaded, "VeldranSimulatorReloadSettings"))) reload();
    }
    PluginHost host;
    std::string loaded = host.Load(bundle);
    EXPECT_EQ("", loaded);
    std::atomic<bool> stop{false};
    RecordSession session(host, settings, stop, false);
    if (request.timeLimitSeconds == 0) request.timeLimitSeconds = 60;
    return session.Run(request);
  }

  // A request for frames counted by the plug-in from the start, into the movie at path.
  static RecordRequest Counted(const std::string& path, int32_t frames) {
    RecordRequest request;
    request.moviePath = path;
    request.frames = frames;
    request.pluginCounts = true;
    return request;
  }

  // One recording with the card sending no timecode, at speed times real time.
  RecordOutcome RecordUntimed(const CaptureSettings& settings, const RecordRequest& request, const char* speed,
                              const std::string& bundle = KESTRIN_BUNDLE) {
    return Record(settings, request, {{"VELDRAN_SIM_TIMECODE", "none"}, {"VELDRAN_SIM_SPEED", speed}}, bundle);
  }

  // A copy of the plug-in bundle whose server writes slowly (each write held back, room for
  // two frames): the server has to drop frames, however fast this machine is.
  std::string SlowServerBundle(unsigned long frameBytes) {
    std::string bundle = mFolder + "/Slow.bundle";
    fs::create_directories(bundle + "/Contents/Linux");
    fs::create_directories(bundle + "/Contents/Resources");
    fs::copy_file(std::string(KESTRIN_BUNDLE) + "/Contents/Linux/KestrinCapture.so", bundle + "/Contents/Linux/KestrinCapture.so");
    std::string server = bundle + "/Contents/Resources/QTRecordServer";
    FILE* script = fopen(server.c_str(), "w");
    fprintf(script, "#!/bin/sh\nexec '%s/Contents/Resources/QTRecordServer' --write-delay-ms 60 --backlog-bytes %lu\n",
            KESTRIN_BUNDLE, 2 * frameBytes);
    fclose(script);
    fs::permissions(server, fs::perms::owner_all);
    return bundle;
  }

  // A copy of the plug-in bundle whose server is a shell script: body runs the real server,
  // whose path is in $server.
  std::string ScriptedServerBundle(const std::string& name, const std::string& body) {
    std::string bundle = mFolder + "/" + name + ".bundle";
    fs::create_directories(bundle + "/Contents/Linux");
    fs::create_directories(bundle + "/Contents/Resources");
    fs::copy_file(std::string(KESTRIN_BUNDLE) + "/Contents/Linux/KestrinCapture.so", bundle + "/Contents/Linux/KestrinCapture.so");
    std::string server = bundle + "/Contents/Resources/QTRecordServer";
    FILE* script = fopen(server.c_str(), "w");
    fprintf(script, "#!/bin/sh\nserver='%s/Contents/Resources/QTRecordServer'\n%s\n", KESTRIN_BUNDLE, body.c_str());
    fclose(script);
    fs::permissions(server, fs::perms::owner_all);
    return bundle;
  }

  std::unique_ptr<Util::ScratchFolder> mScratch;
  std::string mFolder;
};

// The slot of each recorded picture, counted in frames of mode from the movie's start.
std::vector<int64_t> Slots(const Sim::SimulatedMode& mode, const ProbedStream& video) {
  std::vector<int64_t> slots;
  for (int64_t pts : video.pts) {
    int64_t units = pts * video.timeBaseNum * mode.timeScale;
    int64_t perFrame = static_cast<int64_t>(video.timeBaseDen) * mode.frameDuration;
    slots.push_back((units + perFrame / 2) / perFrame);
  }
  return slots;
}

// Checks that every recorded picture is the card's, byte for byte: the first is found among
// the card's first 3000 pictures (or is firstIndex), and each later one is the card's
// picture as many frames later as its time in the movie says. A slot whose picture was
// given up (the card or the plug-in dropped it under load) stays empty and is skipped.
void ExpectTheCardsFrames(const Sim::SimulatedMode& mode, uint32_t format, const ProbedStream& video,
                          int64_t firstIndex = -1) {
  Sim::TestSignal signal(mode, format);
  std::vector<uint8_t> picture(signal.FrameBytes());
  ASSERT_GT(video.packets, 0);
  ASSERT_EQ(picture.size() * static_cast<size_t>(video.packets), video.bytes.size());
  const std::vector<int64_t> slots = Slots(mode, video);
  int64_t first = firstIndex;
  if (first < 0) {
    for (int64_t k = 0; k < 3000 && first < 0; ++k) {
      signal.Render(k, picture.data());
      if (std::equal(picture.begin(), picture.end(), video.bytes.begin())) first = k;
    }
    ASSERT_GE(first, 0) << "the first frame is none of the card's first 3000";
  }
  for (size_t i = 0; i < slots.size(); ++i) {
    int64_t n = first + slots[i] - slots[0];
    signal.Render(n, picture.data());
    ASSERT_TRUE(std::equal(picture.begin(), picture.end(), video.bytes.begin() + static_cast<long>(picture.size() * i)))
        << "picture " << i << " (slot " << slots[i] << ") is not the card's picture " << n;
  }
}

// ---- The recording matrix ----

struct Pair {
  int standard;
  int format;
};

std::vector<Pair> Matrix() {
  std::vector<Pair> pairs;
  for (size_t s = 0; s < kSupportedStandardCount; ++s) {
    if (!gSupportedStandards[s].name) continue;
    for (size_t f = 0; f < 12; ++f) {  // 12 and 13 (ProRes) are allowed by no standard
      if (gSupportedStandards[s].allowedFormats & (1u << f)) pairs.push_back({static_cast<int>(s), static_cast<int>(f)});
    }
  }
  return pairs;
}

// What the movie stores for a format: the DV family's fixed rasters, else the standard's size.
void StoredSize(uint32_t codec, const CaptureSettings& settings, int& width, int& height) {
  width = static_cast<int>(settings.width);
  height = static_cast<int>(settings.height);
  if (codec == FourCC("dvh6")) width = 1280;
  if (codec == FourCC("dvh5")) width = 1440;
  if (codec == FourCC("dvhp") || codec == FourCC("dvhq")) width = 960;
}

// What ffprobe says of a take's colours and fields, "<color_space>,<field_order>": SD in
// BT.601 (NTSC's or PAL's), HD and 2K in BT.709, RGB as RGB and JPEG in its own BT.601; the
// fields as the card's mode delivers them, but for DV, whose codec fixes its own.
std::string ExpectedColoursAndFields(const CaptureSettings& settings) {
  const uint32_t codec = settings.codecType;
  std::string colours = codec == FourCC("r210")   ? "gbr"
                        : codec == FourCC("jpeg") ? "bt470bg"
                        : settings.height > 576   ? "bt709"
                        : settings.height == 576  ? "bt470bg"
                                                  : "smpte170m";
  std::string fields;
  if (codec == FourCC("dvc ") || codec == FourCC("dvcp") || codec == FourCC("dv5n") || codec == FourCC("dv5p")) {
    fields = "bb";
  } else if (codec == FourCC("dvh5") || codec == FourCC("dvh6")) {
    fields = "tt";
  } else if (codec == FourCC("dvhp") || codec == FourCC("dvhq")) {
    fields = "progressive";
  } else {
    const uint32_t dominance = Sim::FindSimulatedMode(settings.displayMode)->fieldDominance;
    fields = dominance == ktnUpperFieldFirst ? "tt" : dominance == ktnLowerFieldFirst ? "bb" : "progressive";
  }
  return colours + "," + fields;
}

// The timecode track's start as ffprobe reads it (its timecode tag).
std::string ProbedTimecode(const std::string& movie) {
  return Ffprobe(movie, "-select_streams d:0 -show_entries stream_tags=timecode");
}

class RecordingMatrixTest : public EndToEndTest, public testing::WithParamInterface<Pair> {};

TEST_P(RecordingMatrixTest, ShortRecordingIsRightInEveryRespect) {
  const Pair pair = GetParam();
  CaptureSettings settings = Settings(pair.standard, pair.format);
  const uint32_t codec = settings.codecType;
  RecordRequest request = Counted(mFolder + "/take.mov", 3);
  // Without timecode the plug-in starts at once and counts the frames itself; the card runs
  // at real time, as a card does.
  RecordOutcome outcome = RecordUntimed(settings, request, "1");
  ASSERT_EQ(0, outcome.exitCode) << outcome.error;
  double rate = static_cast<double>(settings.timeScale) / settings.frameDuration;
  int expected = rate > 30 ? 6 : 3;  // frame pairs above 30 frames a second

  bool uncompressed = codec == FourCC("2vuy") || codec == FourCC("v210") || codec == FourCC("r210");
  ProbedMovie movie = ProbeMovie(request.moviePath, !uncompressed);
  ASSERT_TRUE(movie.opened);
  EXPECT_EQ(Spelled(codec), Spelled(movie.video.codecTag));
  int width, height;
  StoredSize(codec, settings, width, height);
  EXPECT_EQ(width, movie.video.width);
  EXPECT_EQ(height, movie.video.height);
  // The frame limit takes exactly that many slots. A loaded machine may leave some of them
  // without their picture (dropped and reported), never with more.
  EXPECT_GE(movie.video.packets, 1);
  EXPECT_LE(movie.video.packets, expected);
  if (movie.video.packets < expected) {
    EXPECT_TRUE(outcome.droppedFrames) << "a slot without its picture is reported";
  }
  if (!uncompressed) {
    EXPECT_TRUE(movie.decodedEveryVideoFrame);
  }
  // The rate: the pictures last exactly the slots of the frame limit, each one frame
  // duration of the standard.
  EXPECT_EQ(expected * static_cast<int64_t>(settings.frameDuration) * movie.video.timeBaseDen,
            movie.video.totalDuration * static_cast<int64_t>(settings.timeScale) * movie.video.timeBaseNum);
  // The sound lasts as long as the pictures, to the rounding of one sample.
  double videoSeconds = expected * static_cast<double>(settings.frameDuration) / settings.timeScale;
  EXPECT_LT(std::fabs(movie.audio.totalDuration - videoSeconds * 48000), 1.0)
      << movie.audio.totalDuration << " samples for " << expected << " frames";
  if (uncompressed) {
    ExpectTheCardsFrames(*Sim::FindSimulatedMode(settings.displayMode), codec, movie.video);
  }
  // What a finishing editor looks for first. The signal carries no timecode: the take starts
  // at the host's, which has none of its own either.
  EXPECT_EQ(ExpectedColoursAndFields(settings),
            Ffprobe(request.moviePath, "-select_streams v:0 -show_entries stream=color_space,field_order"));
  EXPECT_EQ("00:00:00:00", ProbedTimecode(request.moviePath));
}

INSTANTIATE_TEST_SUITE_P(EveryStandardAndFormat, RecordingMatrixTest, testing::ValuesIn(Matrix()),
                         [](const testing::TestParamInfo<Pair>& info) {
                           return "standard" + std::to_string(info.param.standard) + "_format" +
                                  std::to_string(info.param.format);
                         });

// ---- Starting points, leftovers, dropped frames ----

TEST_F(EndToEndTest, StartOnATimecodeDropsTheFramesBefore) {
  CaptureSettings settings = Settings(4, 0);  // PAL 4x3, 2vuy
  RecordRequest request;
  request.moviePath = mFolder + "/in.mov";
  request.frames = 5;
  request.hasInPoint = true;
  request.timecodeRate = 25;
  Util::TimeCode in = {1, 0, 2, 0, 25, 1, 25, 0};  // 01:00:02:00: the card's 50th frame
  request.inPointFrames = Util::ConvertTimeCodeToFrameCount(&in);
  RecordOutcome outcome = Record(settings, request, {{"VELDRAN_SIM_SPEED", "4"}});
  ASSERT_EQ(0, outcome.exitCode) << outcome.error;
  ProbedMovie movie = ProbeMovie(request.moviePath, false);
  ASSERT_GE(movie.video.packets, 5);
  ExpectTheCardsFrames(*Sim::FindSimulatedMode(settings.displayMode), FourCC("2vuy"), movie.video, 50);
}

TEST_F(EndToEndTest, StartWithADeckAtItsCuePoint) {
  CaptureSettings settings = Settings(4, 1);  // PAL 4x3, v210
  RecordRequest request;
  request.moviePath = mFolder + "/deck.mov";
  request.frames = 4;
  request.pluginCounts = true;
  // No timecode in the signal: the deck's start check decides (cue at its 25th frame).
  RecordOutcome outcome = Record(settings, request,
                                 {{"VELDRAN_SIM_TIMECODE", "none"}, {"VELDRAN_SIM_DECK", "1"},
                                  {"VELDRAN_SIM_CUE", "01:00:01:00"}, {"VELDRAN_SIM_SPEED", "4"}});
  ASSERT_EQ(0, outcome.exitCode) << outcome.error;
  ProbedMovie movie = ProbeMovie(request.moviePath, false);
  ASSERT_GE(movie.video.packets, 4);
  ExpectTheCardsFrames(*Sim::FindSimulatedMode(settings.displayMode), FourCC("v210"), movie.video, 25);
}

TEST_F(EndToEndTest, LeftoverSegmentsOfACrashedRunAreCleared) {
  for (const char* key : {kVideoShmKey, kAudioShmKey}) {
    int fd = shm_open(key, O_RDWR | O_CREAT, 0600);
    ASSERT_GE(fd, 0);
    close(fd);
  }
  CaptureSettings settings = Settings(4, 0);
  RecordRequest request = Counted(mFolder + "/leftover.mov", 3);
  RecordOutcome outcome = RecordUntimed(settings, request, "4");
  ASSERT_EQ(0, outcome.exitCode) << outcome.error;
  EXPECT_GE(ProbeMovie(request.moviePath, false).video.packets, 3);
  EXPECT_FALSE(fs::exists(std::string("/dev/shm/") + kVideoShmKey)) << "nothing left behind this time";
}

TEST_F(EndToEndTest, DroppedFramesAreReportedAndTheMovieStillPlays) {
  CaptureSettings settings = Settings(4, 0);  // PAL, 2vuy: 829440-byte frames
  RecordRequest request = Counted(mFolder + "/dropped.mov", 60);
  RecordOutcome outcome = RecordUntimed(settings, request, "2", SlowServerBundle(829440));
  ASSERT_EQ(0, outcome.exitCode) << outcome.error;
  EXPECT_TRUE(outcome.droppedFrames) << outcome.status;
  EXPECT_EQ("Recording to disk (WARNING: Dropped frames detected)", outcome.status);
  ProbedMovie movie = ProbeMovie(request.moviePath, true);
  ASSERT_TRUE(movie.opened);
  EXPECT_TRUE(movie.decodedEveryVideoFrame);
  EXPECT_LT(movie.video.packets, 60);
  EXPECT_GT(movie.video.packets, 2);
}

TEST_F(EndToEndTest, AbortOnDroppedFramesEndsTheRecording) {
  CaptureSettings settings = Settings(4, 0);
  RecordRequest request = Counted(mFolder + "/abort.mov", 400);
  request.abortOnDrop = true;
  RecordOutcome outcome = RecordUntimed(settings, request, "2", SlowServerBundle(829440));
  EXPECT_EQ(7, outcome.exitCode);
  EXPECT_EQ("recording aborted: frames were dropped", outcome.error);
  ProbedMovie movie = ProbeMovie(request.moviePath, false);
  EXPECT_TRUE(movie.opened) << "what was written before the abort still plays";
  EXPECT_LT(movie.video.packets, 400);
}

// ---- The host program as a process ----

// The host program recording PAL 4x3 in format row `format` into movie, for as long as
// lengthOption ("--seconds", "--frames") and length say; its standard error goes to folder.
Child StartPalRecording(const std::string& movie, const char* format, const char* lengthOption, const char* length,
                        const std::string& folder) {
  return StartHostProgram({"record", "-o", movie, "--standard", "PAL 4x3", "--format", format, lengthOption, length},
                          folder);
}

// The server the host program started, once the movie holds at least `bytes` (a number of
// frames, however long a loaded machine takes to write them; a minute at most); -1 if it
// started none.
pid_t ServerOnceWritten(const Child& host, const std::string& movie, uintmax_t bytes) {
  pid_t server = ServerOf(host.pid);
  if (server <= 0) return server;
  std::error_code ignored;
  for (int i = 0; i < 3000; ++i) {
    if (fs::exists(movie, ignored) && fs::file_size(movie, ignored) >= bytes) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return server;
}

// Bytes of n PAL frames of 8-bit (2vuy) and 10-bit (v210) pictures.
constexpr uintmax_t PalFrames2vuy(int n) { return 829440ull * static_cast<uintmax_t>(n); }
constexpr uintmax_t PalFramesV210(int n) { return 1105920ull * static_cast<uintmax_t>(n); }

TEST_F(EndToEndTest, MovieOfAKilledHostProgramPlaysWithWhatWasHandedOver) {
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "1"}});
  std::string movie = mFolder + "/orphan.mov";
  Child host = StartPalRecording(movie, "1", "--seconds", "30", mFolder);
  pid_t server = ServerOnceWritten(host, movie, PalFramesV210(26));  // 25 frames and their headers
  ASSERT_GT(server, 0);
  ASSERT_EQ(0, kill(host.pid, SIGKILL));
  WaitFor(host.pid, 60);
  // The orphaned server sees the end of its input, finishes the movie and ends.
  for (int i = 0; i < 3000 && kill(server, 0) == 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_NE(0, kill(server, 0)) << "the server finished";
  ProbedMovie probed = ProbeMovie(movie, false);
  ASSERT_TRUE(probed.opened);
  EXPECT_GE(probed.video.packets, 25) << "what the file held when the host went is kept";
  ExpectTheCardsFrames(*Sim::FindSimulatedMode(FourCC("pal ")), FourCC("v210"), probed.video);
}

struct BadCommand {
  std::vector<std::string> arguments;
  const char* error;
};

TEST_F(EndToEndTest, HostProgramRefusesBadInputInOneLine) {
  const BadCommand cases[] = {
      {{"record"}, "kestrin-capture: record needs -o MOVIE"},
      {{"record", "-o", "x.mov", "--channels", "6"}, "kestrin-capture: --channels must be 2, 8 or 16"},
      {{"record", "-o", "x.mov", "--bits", "20"}, "kestrin-capture: --bits must be 16, 24 or 32"},
      {{"record", "-o", "x.mov", "--frames", "0"}, "kestrin-capture: --frames must be a whole number from 1"},
      {{"record", "-o", "x.mov", "--standard", "Cinemascope"},
       "kestrin-capture: no standard \"Cinemascope\" (see kestrin-capture info for the list)"},
      {{"record", "-o", "x.mov", "--standard", "6"}, "kestrin-capture: no standard \"6\" (see kestrin-capture info for the list)"},
      {{"record", "-o", "x.mov", "--standard", "HD 1080p 25", "--format", "DV PAL"},
       "kestrin-capture: \"DV PAL\" cannot be recorded with \"HD 1080p 25\"; choose one of \"Uncompressed 8-bit 4:2:2\", "
       "\"Uncompressed 10-bit 4:2:2\", \"Uncompressed RGB 10-bit 4:4:4\", \"JPEG\""},
      {{"record", "-o", "x.mov", "--in", "01:00:00:00"}, "kestrin-capture: --in needs --frames or --seconds"},
      {{"record", "-o", "x.mov", "--frames", "5", "--seconds", "1"}, "kestrin-capture: give --frames or --seconds, not both"},
      {{"record", "-o", "x.mov", "--plugin"}, "kestrin-capture: --plugin needs a bundle path"},
      {{"record", "--verify"}, "kestrin-capture: record needs -o MOVIE"},
      {{"record", "-o", "x.mov", "--verify=yes"}, "kestrin-capture: record: --verify takes no value"},
      {{"record", "-o", "x.mov", "--secnds", "5"}, "kestrin-capture: record: unknown option --secnds (did you mean --seconds?)"},
      {{"record", "x.mov"}, "kestrin-capture: record: unexpected argument x.mov (the movie is given with -o)"},
      {{"info", "--all"}, "kestrin-capture: info: unknown option --all"},
      {{"replay"}, "kestrin-capture: unknown command replay"},
      {{"recrd", "-o", "x.mov"}, "kestrin-capture: unknown command recrd (did you mean record?)"},
  };
  for (const BadCommand& c : cases) {
    Child host = StartHostProgram(c.arguments, mFolder);
    int status = WaitFor(host.pid, 60);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(2, WEXITSTATUS(status)) << c.error;
    std::string error = ReadText(host.errorFile);
    EXPECT_EQ(std::string(c.error), error.substr(0, error.find('\n'))) << error;
    // Then the usage of the command given, or of every command, and where the help is.
    const std::string command = c.arguments[0] == "record" || c.arguments[0] == "info" ? c.arguments[0] : "";
    EXPECT_NE(std::string::npos, error.find("\nusage: kestrin-capture " + (command.empty() ? "record" : command) + " "))
        << error;
    EXPECT_NE(std::string::npos, error.find(command.empty() ? "\nkestrin-capture --help lists the commands.\n"
                                                            : "\nkestrin-capture " + command + " --help says every option.\n"))
        << error;
    if (!command.empty()) {
      EXPECT_EQ(std::string::npos, error.find("kestrin-capture repair ")) << error;
    }
  }
}

// Every command's --help, the program's and its version go to standard output with exit
// status 0; the options a command's help lists are those its usage line names.
TEST_F(EndToEndTest, HostProgramSaysItsUsageOnStandardOutputWhenAsked) {
  const std::vector<std::vector<std::string>> asked = {
      {"--help"}, {"record", "--help"}, {"info", "--help"}, {"repair", "-h"}, {"verify", "--help"}, {"report", "--help"},
      {"gui", "--help"}, {"--version"}};
  for (const std::vector<std::string>& arguments : asked) {
    std::string output, error;
    int status = RunHostProgram(arguments, mFolder, 60, output, error);
    ASSERT_TRUE(WIFEXITED(status)) << arguments[0];
    EXPECT_EQ(0, WEXITSTATUS(status)) << arguments[0] << ": " << error;
    EXPECT_EQ("", error);
    if (arguments[0] == "--version") {
      EXPECT_EQ(0u, output.find("kestrin-capture ")) << output;
      EXPECT_NE(std::string::npos, output.find("\nFFmpeg ")) << output;
      EXPECT_NE(std::string::npos, output.find("\nQt ")) << output;
    } else if (arguments[0] == "--help") {
      for (const char* command : {"record", "info", "repair", "verify", "report", "gui"}) {
        EXPECT_NE(std::string::npos, output.find(std::string("\n  ") + command + " ")) << output;
      }
    } else {
      EXPECT_EQ(0u, output.find("usage: kestrin-capture " + arguments[0])) << output;
      EXPECT_NE(std::string::npos, output.find("\noptions:\n")) << output;
      EXPECT_NE(std::string::npos, output.find("--help  ")) << output;
    }
  }
  std::string output, error;
  int status = RunHostProgram({"record", "--help"}, mFolder, 60, output, error);
  ASSERT_TRUE(WIFEXITED(status));
  for (const char* option : {"--output MOVIE", "--standard NAME|ROW", "--format NAME|ROW", "--channels 2|8|16", "--bits 16|24|32",
                             "--frames N", "--seconds SECONDS", "--in HH:MM:SS:FF", "--abort-on-drop", "--no-audio",
                             "-y, --overwrite", "--plugin BUNDLE", "--verify"}) {
    EXPECT_NE(std::string::npos, output.find(option)) << option << "\n" << output;
  }
}

// Values given as --name=value, as most Linux programs take them, and "--" before an operand.
TEST_F(EndToEndTest, HostProgramTakesOptionsWithTheirValuesAfterAnEqualsSign) {
  const std::string movie = mFolder + "/equals.mov";
  std::string output, error;
  int status = RunHostProgram({"record", "--output=" + movie, "--frames=3", "--standard=PAL 4x3", "--format=DV PAL",
                               "--channels=2", "--bits=16"},
                              mFolder, 60, output, error);
  ASSERT_TRUE(WIFEXITED(status)) << error;
  ASSERT_EQ(0, WEXITSTATUS(status)) << error;
  EXPECT_NE(std::string::npos, output.find(" frames to " + movie)) << output;
  ProbedMovie probed = ProbeMovie(movie, false);
  ASSERT_TRUE(probed.opened);
  EXPECT_EQ(720, probed.video.width);
  EXPECT_EQ(576, probed.video.height);
  EXPECT_EQ(Util::FourCC("dvcp"), probed.video.codecTag);
  EXPECT_EQ(2, probed.audio.channels);
  status = RunHostProgram({"verify", "--", movie}, mFolder, 60, output, error);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status)) << error;
}

TEST_F(EndToEndTest, HostProgramReportsAMissingPlugin) {
  Child host = StartHostProgram({"record", "-o", mFolder + "/x.mov", "--plugin", "/nonexistent.bundle", "--frames", "1"},
                                mFolder);
  int status = WaitFor(host.pid, 60);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(3, WEXITSTATUS(status));
  EXPECT_EQ(0u, ReadText(host.errorFile).find("kestrin-capture: cannot load the plug-in: "));
}

// ---- Overload: a card faster than the machine, a server that stalls ----

// Seconds of a movie's pictures (their slots, from the first to the end of the last) and of
// its sound.
double PictureSeconds(const ProbedStream& video) {
  return video.timeBaseDen ? static_cast<double>(video.totalDuration) * video.timeBaseNum / video.timeBaseDen : 0;
}

// Every service call returns within about a second however fast frames arrive (the bound
// here only tells a call that returns from one that drains for ever).
constexpr double kServiceCallBound = 3.0;

struct OverloadCase {
  const char* speed;
};

class OverloadTest : public EndToEndTest, public testing::WithParamInterface<OverloadCase> {};

// HD 1080p 60 in 10-bit at 8 and 16 times real time: more than any machine of ours hands
// over. The frame limit ends the recording at exactly its slots; the pictures that could not
// be taken are given up and reported, the rest are the card's in their own slots, and the
// sound lasts as long as the pictures.
TEST_P(OverloadTest, AFrameLimitEndsAnOverloadedRecordingOnTimeAndInStep) {
  CaptureSettings settings = Settings(18, 1);  // HD 1080p 60, v210
  Util::ScratchFolder memory(Util::ScratchFolder::Where::kMemory);  // 660 MB at most, and no disk in the way
  RecordRequest request = Counted(memory.File("overload.mov"), 60);  // 120 frames: two seconds
  request.timeLimitSeconds = 120;
  RecordOutcome outcome = RecordUntimed(settings, request, GetParam().speed);
  ASSERT_EQ(0, outcome.exitCode) << outcome.error;
  EXPECT_LT(outcome.longestServiceCall, kServiceCallBound);
  ProbedMovie movie = ProbeMovie(request.moviePath, false);
  ASSERT_TRUE(movie.opened);
  ASSERT_GE(movie.video.packets, 1);
  EXPECT_LE(movie.video.packets, 120);
  if (movie.video.packets < 120) {
    EXPECT_TRUE(outcome.droppedFrames) << "pictures given up are reported";
    EXPECT_EQ("Recording to disk (WARNING: Dropped frames detected)", outcome.status);
  }
  EXPECT_NEAR(2.0, PictureSeconds(movie.video), 1e-6) << "exactly the slots of the limit";
  EXPECT_LT(std::fabs(movie.audio.totalDuration / 48000.0 - PictureSeconds(movie.video)), 1.0 / 60)
      << "picture and sound agree within a frame";
  ExpectTheCardsFrames(*Sim::FindSimulatedMode(FourCC("Hp60")), FourCC("v210"), movie.video);
}

// Without a frame limit the host's Stop ends the recording, on time, however far behind the
// hand-over is; what was handed over is in the movie, in step.
TEST_P(OverloadTest, TheHostsStopEndsAnOverloadedRecordingWithoutALimit) {
  CaptureSettings settings = Settings(4, 0);  // PAL 2vuy
  Util::ScratchFolder memory(Util::ScratchFolder::Where::kMemory);
  RecordRequest request;
  request.moviePath = memory.File("no limit.mov");
  request.pluginCounts = true;  // 0x7FFFFFFF: until stopped
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_TIMECODE", "none"}, {"VELDRAN_SIM_SPEED", GetParam().speed}});
  PluginHost host;
  ASSERT_EQ("", host.Load(KESTRIN_BUNDLE));
  std::atomic<bool> stop{false};
  std::thread stopper([&stop] {
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    stop = true;
  });
  auto start = std::chrono::steady_clock::now();
  RecordSession session(host, settings, stop, false);
  request.timeLimitSeconds = 120;
  RecordOutcome outcome = session.Run(request);
  stopper.join();
  double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  ASSERT_EQ(0, outcome.exitCode) << outcome.error;
  EXPECT_LT(outcome.longestServiceCall, kServiceCallBound);
  EXPECT_LT(took, 60.0) << "stopped, not drained for ever";
  ProbedMovie movie = ProbeMovie(request.moviePath, false);
  ASSERT_TRUE(movie.opened);
  ASSERT_GE(movie.video.packets, 1);
  EXPECT_LT(std::fabs(movie.audio.totalDuration / 48000.0 - PictureSeconds(movie.video)), 1.0 / 25)
      << "picture and sound agree within a frame";
  ExpectTheCardsFrames(*Sim::FindSimulatedMode(FourCC("pal ")), FourCC("2vuy"), movie.video);
}

// Asked to abort when frames are dropped, an overloaded recording ends with 17 (the host
// program's status 7), and what it wrote plays.
TEST_P(OverloadTest, AbortOnDroppedFramesEndsAnOverloadedRecording) {
  CaptureSettings settings = Settings(9, 1);  // HD 720p 60, v210: 2.5 MB frames
  Util::ScratchFolder memory(Util::ScratchFolder::Where::kMemory);
  RecordRequest request = Counted(memory.File("abort.mov"), 3000);
  request.abortOnDrop = true;
  request.timeLimitSeconds = 120;
  // A server that writes slowly as well: frames are dropped however fast this machine is
  // (and however slowly an instrumented card makes its frames).
  RecordOutcome outcome = RecordUntimed(settings, request, GetParam().speed, SlowServerBundle(3456 * 720));
  EXPECT_EQ(7, outcome.exitCode) << outcome.error;
  EXPECT_EQ("recording aborted: frames were dropped", outcome.error);
  EXPECT_LT(outcome.longestServiceCall, kServiceCallBound);
  ProbedMovie movie = ProbeMovie(request.moviePath, false);
  ASSERT_TRUE(movie.opened) << "what was written before the abort plays";
  EXPECT_LT(movie.video.packets, 6000);
}

INSTANTIATE_TEST_SUITE_P(EightAndSixteenTimesRealTime, OverloadTest, testing::Values(OverloadCase{"8"}, OverloadCase{"16"}),
                         [](const testing::TestParamInfo<OverloadCase>& info) {
                           return std::string("speed") + info.param.speed;
                         });

// A take the host counts, above 30 frames a second, with frames dropped: the plug-in counts
// frame pairs, but frames in its dropped-frames report; the host reads each as it is meant
// and records the two seconds asked for, not one.
TEST_F(EndToEndTest, AHostCountedTakeAbove30FramesKeepsItsLengthWhenFramesAreDropped) {
  CaptureSettings settings = Settings(18, 1);  // HD 1080p 60, v210
  RecordRequest request;
  request.moviePath = mFolder + "/host counted.mov";
  request.frames = 60;  // pairs: 120 frames
  request.timeLimitSeconds = 120;
  // At real time, with a server that drops most frames: the warning comes at once.
  RecordOutcome outcome = RecordUntimed(settings, request, "1", SlowServerBundle(5120 * 1080));
  ASSERT_EQ(0, outcome.exitCode) << outcome.error;
  ASSERT_TRUE(outcome.droppedFrames);
  ProbedMovie movie = ProbeMovie(request.moviePath, false);
  ASSERT_TRUE(movie.opened);
  ASSERT_GE(movie.video.packets, 1);
  EXPECT_GE(PictureSeconds(movie.video), 2.0 - 1e-6) << "the frames asked for, dropped or not";
  EXPECT_GE(outcome.frames, 120);
  // The host stops at its first report past the count: a service call's frames more at most.
  EXPECT_LT(PictureSeconds(movie.video), 4.0);
  EXPECT_LT(std::fabs(movie.audio.totalDuration / 48000.0 - PictureSeconds(movie.video)), 1.0 / 60);
}

// The recording server stopped (as a stalled disk stops it) while the card runs at real
// time: the service calls go on returning, and a two-second stall costs no frame.
TEST_F(EndToEndTest, AServerStalledForTwoSecondsCostsNoFrame) {
  CaptureSettings settings = Settings(4, 0);  // PAL 2vuy
  RecordRequest request = Counted(mFolder + "/stalled.mov", 150);  // six seconds
  request.timeLimitSeconds = 120;
  std::atomic<bool> stalled{false};
  std::thread staller([&stalled] {
    for (int i = 0; i < 3000 && RunningServerOf(getpid()) < 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    pid_t server = RunningServerOf(getpid());
    if (server <= 0 || kill(server, SIGSTOP) != 0) return;
    stalled = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(2000));
    kill(server, SIGCONT);
  });
  RecordOutcome outcome = RecordUntimed(settings, request, "1");
  staller.join();
  ASSERT_TRUE(stalled) << "the server was stopped mid-take";
  ASSERT_EQ(0, outcome.exitCode) << outcome.error;
  EXPECT_FALSE(outcome.droppedFrames) << outcome.status;
  EXPECT_LT(outcome.longestServiceCall, kServiceCallBound) << "the host's thread was never held for the stall";
  ProbedMovie movie = ProbeMovie(request.moviePath, false);
  ASSERT_EQ(150, movie.video.packets);
  ExpectTheCardsFrames(*Sim::FindSimulatedMode(FourCC("pal ")), FourCC("2vuy"), movie.video);
  EXPECT_LT(std::fabs(movie.audio.totalDuration / 48000.0 - PictureSeconds(movie.video)), 1.0 / 25);
}

// A longer stall than the queues hold: pictures are given up, reported, their slots kept,
// and picture and sound stay in step.
TEST_F(EndToEndTest, ALongerStallGivesUpPicturesButKeepsTheirSlots) {
  CaptureSettings settings = Settings(4, 0);  // PAL 2vuy
  RecordRequest request = Counted(mFolder + "/long stall.mov", 250);  // ten seconds
  request.timeLimitSeconds = 120;
  std::thread staller([] {
    for (int i = 0; i < 3000 && RunningServerOf(getpid()) < 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    pid_t server = RunningServerOf(getpid());
    if (server <= 0 || kill(server, SIGSTOP) != 0) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(6000));  // under the hung-server limit
    kill(server, SIGCONT);
  });
  RecordOutcome outcome = RecordUntimed(settings, request, "1");
  staller.join();
  ASSERT_EQ(0, outcome.exitCode) << outcome.error;
  EXPECT_TRUE(outcome.droppedFrames);
  EXPECT_EQ("Recording to disk (WARNING: Dropped frames detected)", outcome.status);
  EXPECT_LT(outcome.longestServiceCall, kServiceCallBound);
  ProbedMovie movie = ProbeMovie(request.moviePath, false);
  ASSERT_TRUE(movie.opened);
  EXPECT_LT(movie.video.packets, 250);
  EXPECT_NEAR(10.0, PictureSeconds(movie.video), 1e-6) << "every slot kept";
  EXPECT_LT(std::fabs(movie.audio.totalDuration / 48000.0 - PictureSeconds(movie.video)), 1.0 / 25);
  ExpectTheCardsFrames(*Sim::FindSimulatedMode(FourCC("pal ")), FourCC("2vuy"), movie.video);
}

// Two host programs recording at once on one machine, through the one pair of segment
// names: each movie holds its own card's pictures, byte for byte.
TEST_F(EndToEndTest, TwoHostProgramsRecordAtOnce) {
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "2"}, {"VELDRAN_SIM_TIMECODE", "none"}});
  std::string palMovie = mFolder + "/pal.mov";
  std::string ntscMovie = mFolder + "/ntsc.mov";
  fs::create_directories(mFolder + "/pal");
  fs::create_directories(mFolder + "/ntsc");
  Child pal = StartHostProgram({"record", "-o", palMovie, "--standard", "PAL 4x3", "--format", "0", "--frames", "100"},
                               mFolder + "/pal");
  Child ntsc = StartHostProgram(
      {"record", "-o", ntscMovie, "--standard", "NTSC 4x3", "--format", "1", "--frames", "100"}, mFolder + "/ntsc");
  int palStatus = WaitFor(pal.pid, 120);
  int ntscStatus = WaitFor(ntsc.pid, 120);
  ASSERT_TRUE(WIFEXITED(palStatus));
  ASSERT_TRUE(WIFEXITED(ntscStatus));
  EXPECT_EQ(0, WEXITSTATUS(palStatus)) << ReadText(pal.errorFile);
  EXPECT_EQ(0, WEXITSTATUS(ntscStatus)) << ReadText(ntsc.errorFile);
  ProbedMovie palProbe = ProbeMovie(palMovie, false);
  ProbedMovie ntscProbe = ProbeMovie(ntscMovie, false);
  ASSERT_GE(palProbe.video.packets, 50);
  ASSERT_GE(ntscProbe.video.packets, 50);
  ExpectTheCardsFrames(*Sim::FindSimulatedMode(FourCC("pal ")), FourCC("2vuy"), palProbe.video);
  ExpectTheCardsFrames(*Sim::FindSimulatedMode(FourCC("ntsc")), FourCC("v210"), ntscProbe.video);
  EXPECT_FALSE(fs::exists(std::string("/dev/shm/") + kVideoShmKey));
}

// A segment another user's run left behind cannot be removed by this one: one line names
// that user.
TEST_F(EndToEndTest, ASegmentLeftByAnotherUserIsNamedInOneLine) {
  if (geteuid() != 0) GTEST_SKIP() << "making a segment of another user needs root";
  std::string leftover = std::string("/dev/shm/") + kVideoShmKey;
  int fd = shm_open(kVideoShmKey, O_RDWR | O_CREAT | O_EXCL, 0600);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(0, fchown(fd, 65534, 65534));
  close(fd);
  struct Remove {
    ~Remove() { shm_unlink(kVideoShmKey); }
  } remove;
  Util::CapturedStderr captured;
  RecordOutcome outcome = RecordUntimed(Settings(4, 0), Counted(mFolder + "/other.mov", 3), "4");
  std::string text = captured.Text();
  EXPECT_NE(0, outcome.exitCode);
  EXPECT_EQ(std::string::npos, outcome.error.find('\n'));
  struct passwd* nobody = getpwuid(65534);
  std::string name = nobody ? nobody->pw_name : "unknown";
  EXPECT_NE(std::string::npos,
            text.find("Segment com.kestrin-design.shmvideo was left behind by user " + name +
                      " (65534) and only that user can remove it"))
      << text;
}

// ---- Faults ----

bool SegmentsLeft() {
  for (const char* key : {kVideoShmKey, kAudioShmKey}) {
    if (fs::exists(std::string("/dev/shm/") + key)) return true;
  }
  return false;
}

// What a process holds that a failed recording could leave behind.
struct Holdings {
  long descriptors = 0;
  long threads = 0;
  size_t children = 0;
  bool segments = false;
  bool operator==(const Holdings& other) const {
    return descriptors == other.descriptors && threads == other.threads && children == other.children &&
           segments == other.segments;
  }
};

std::ostream& operator<<(std::ostream& out, const Holdings& h) {
  return out << h.descriptors << " descriptors, " << h.threads << " threads, " << h.children << " children, "
             << (h.segments ? "segments left" : "no segments");
}

Holdings HoldingsOfThisProcess() {
  auto entries = [](const char* folder) { return std::distance(fs::directory_iterator(folder), fs::directory_iterator()); };
  return {entries("/proc/self/fd"), entries("/proc/self/task"), ChildrenOf(getpid()).size(), SegmentsLeft()};
}

TEST_F(EndToEndTest, HostProgramReportsAFullDiskInOneLineAndKeepsTheFrames) {
  Util::SmallDisk disk("8m");  // five PAL v210 frames
  if (!disk.Mounted()) GTEST_SKIP() << "cannot mount a tmpfs: " << strerror(disk.Error());
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "4"}});
  std::string movie = disk.File("full.mov");
  Child host = StartPalRecording(movie, "1", "--seconds", "20", mFolder);
  int status = WaitFor(host.pid, 60);
  ASSERT_NE(-1, status) << "the host program hung";
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_NE(0, WEXITSTATUS(status));
  std::string error = ReadText(host.errorFile);
  // The line says the movie was kept, what it holds and the command that completes it.
  std::vector<std::string> lines = UserLines(error);
  ASSERT_EQ(1u, lines.size()) << error;
  std::smatch said;
  ASSERT_TRUE(std::regex_match(lines[0], said,
                               std::regex("kestrin-capture: recording failed: the disk is full \\(28\\); the movie was kept "
                                          "and holds ([0-9]+) frames?; kestrin-capture repair --timecode "
                                          "'[0-9][0-9]:[0-9][0-9]:[0-9][0-9]:[0-9][0-9]' '" + disk.File("full.mov") +
                                          "' completes it")))
      << lines[0];
  EXPECT_GE(std::stoi(said[1].str()), 1);
  ProbedMovie probed = ProbeMovie(movie, true);
  ASSERT_TRUE(probed.opened);
  EXPECT_TRUE(probed.decodedEveryVideoFrame);
  EXPECT_GE(probed.video.packets, 1);
  ExpectTheCardsFrames(*Sim::FindSimulatedMode(FourCC("pal ")), FourCC("v210"), probed.video);
  EXPECT_FALSE(SegmentsLeft());
}

TEST_F(EndToEndTest, HostProgramGivesUpOnAHungServerWithinTheBound) {
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "1"}});
  std::string movie = mFolder + "/hung.mov";
  Child host = StartPalRecording(movie, "0", "--seconds", "60", mFolder);
  pid_t server = ServerOnceWritten(host, movie, PalFrames2vuy(11));
  ASSERT_GT(server, 0);
  ASSERT_EQ(0, kill(server, SIGSTOP));
  auto stopped = std::chrono::steady_clock::now();
  int status = WaitFor(host.pid, 60);
  double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - stopped).count();
  ASSERT_NE(-1, status) << "the host program hung";
  ASSERT_TRUE(WIFEXITED(status)) << "the host program crashed";
  EXPECT_NE(0, WEXITSTATUS(status));
  // Given up after the 10 s idle limit; the bound only tells that from a host that waits.
  EXPECT_LE(waited, 30.0);
  std::string error = ReadText(host.errorFile);
  std::vector<std::string> lines = UserLines(error);
  ASSERT_EQ(1u, lines.size()) << error;
  EXPECT_EQ(0u, lines[0].find("kestrin-capture: recording failed:")) << error;
  for (int i = 0; i < 3000 && kill(server, 0) == 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_NE(0, kill(server, 0)) << "the hung server was ended";
  EXPECT_FALSE(SegmentsLeft());
  ProbedMovie probed = ProbeMovie(movie, true);
  ASSERT_TRUE(probed.opened) << "what was written before it hung plays";
  EXPECT_GE(probed.video.packets, 10);
}

// A recording whose server is killed, stopped or exits mid-take ends with an error; the
// next recording of the same host process starts a fresh server and works.
TEST_F(EndToEndTest, NextRecordingAfterAServerFaultStartsAFreshServer) {
  struct Fault {
    const char* name;
    int signal;
  };
  const Fault faults[] = {{"killed", SIGKILL}, {"hung", SIGSTOP}, {"exits early", SIGTERM}};
  // What this process holds after each recovery: the same every time.
  std::vector<Holdings> counts;
  for (const Fault& fault : faults) {
    SCOPED_TRACE(fault.name);
    CaptureSettings settings = Settings(4, 0);
    RecordRequest request;
    request.moviePath = mFolder + "/fault " + fault.name + ".mov";
    request.frames = 1000;  // forty seconds of PAL
    std::atomic<pid_t> faulted{-1};
    std::thread saboteur([&] {
      for (int i = 0; i < 250 && faulted < 0; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        pid_t server = RunningServerOf(getpid());
        if (server > 0) {
          std::this_thread::sleep_for(std::chrono::milliseconds(1000));
          kill(server, fault.signal);
          faulted = server;
        }
      }
    });
    auto start = std::chrono::steady_clock::now();
    RecordOutcome outcome = RecordUntimed(settings, request, "1");
    saboteur.join();
    double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    ASSERT_GT(faulted, 0) << "no server to fault";
    EXPECT_NE(0, outcome.exitCode);
    EXPECT_FALSE(outcome.error.empty());
    EXPECT_EQ(std::string::npos, outcome.error.find('\n'));
    EXPECT_LT(took, 40.0) << "no wait beyond the idle limit (and what a loaded machine adds)";
    EXPECT_EQ(-1, RunningServerOf(getpid())) << "the faulted server is gone";
    EXPECT_FALSE(SegmentsLeft());

    RecordRequest next = Counted(mFolder + "/after " + fault.name + ".mov", 3);
    RecordOutcome again = RecordUntimed(settings, next, "4");
    ASSERT_EQ(0, again.exitCode) << again.error;
    EXPECT_GE(ProbeMovie(next.moviePath, false).video.packets, 3);
    counts.push_back(HoldingsOfThisProcess());
  }
  for (size_t i = 1; i < counts.size(); ++i) EXPECT_EQ(counts[0], counts[i]) << "after fault " << i;
}

// A full disk, movie paths that cannot be created and stale segments, each recorded in this
// process: every one ends, and the process holds what it held after a good recording.
TEST_F(EndToEndTest, FailedRecordingsLeaveNothingBehind) {
  CaptureSettings settings = Settings(4, 1);  // PAL v210
  auto record = [&](const std::string& path, int32_t frames) {
    return RecordUntimed(settings, Counted(path, frames), "4");
  };
  // A good recording first, so that everything loaded once (the bundle's libraries, the
  // card's threads) is in the baseline.
  RecordOutcome good = record(mFolder + "/good.mov", 3);
  ASSERT_EQ(0, good.exitCode) << good.error;
  const Holdings baseline = HoldingsOfThisProcess();
  EXPECT_EQ(0u, baseline.children);
  EXPECT_FALSE(baseline.segments);

  Util::SmallDisk disk("8m");  // five PAL v210 frames
  Util::SmallDisk readOnly("1m", true);
  fs::create_directories(mFolder + "/a folder.mov");
  struct Failure {
    const char* name;
    std::string path;
    const Util::SmallDisk* mount;  // the filesystem the test mounts for it, if any
  };
  const Failure failures[] = {
      {"disk full", disk.File("full.mov"), &disk},
      {"no folder", mFolder + "/missing/x.mov", nullptr},
      {"a folder", mFolder + "/a folder.mov", nullptr},
      {"read-only", readOnly.File("x.mov"), &readOnly},
  };
  for (const Failure& failure : failures) {
    SCOPED_TRACE(failure.name);
    if (failure.mount && !failure.mount->Mounted()) continue;  // mounting needs root
    RecordOutcome outcome = record(failure.path, 500);
    EXPECT_NE(0, outcome.exitCode);
    EXPECT_FALSE(outcome.error.empty());
    EXPECT_EQ(std::string::npos, outcome.error.find('\n'));
    EXPECT_EQ(baseline, HoldingsOfThisProcess());
  }

  // Segments a crashed run left: cleared, recorded through, and gone again at the end.
  for (const char* key : {kVideoShmKey, kAudioShmKey}) {
    int fd = shm_open(key, O_RDWR | O_CREAT, 0600);
    ASSERT_GE(fd, 0);
    close(fd);
  }
  RecordOutcome afterStale = record(mFolder + "/after stale.mov", 3);
  EXPECT_EQ(0, afterStale.exitCode) << afterStale.error;
  EXPECT_EQ(baseline, HoldingsOfThisProcess());
}

// What the folder holds apart from the host program's own files.
std::vector<std::string> Contents(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    std::string name = entry.path().filename();
    if (name != "stderr.txt" && name != "kestrin-design") names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

struct UnwritablePath {
  std::string path;
  const char* reason;
};

// Movie paths that cannot be written: one line naming the reason, and nothing appears.
TEST_F(EndToEndTest, UnwritableMoviePathsAreRefusedInOneLine) {
  Util::SmallDisk readOnly("1m", true);
  fs::create_directories(mFolder + "/a folder.mov");
  std::vector<UnwritablePath> cases = {
      {mFolder + "/missing/x.mov", "there is no folder"},
      {mFolder + "/a folder.mov", "it is a folder"},
      {mFolder + "/line\nbreak.mov", "a movie path cannot hold a line break"},
  };
  if (readOnly.Mounted()) cases.push_back({readOnly.File("x.mov"), "Read-only file system"});
  std::vector<std::string> before = Contents(mFolder);
  for (const UnwritablePath& c : cases) {
    SCOPED_TRACE(c.path);
    Child host = StartHostProgram({"record", "-o", c.path, "--frames", "3"}, mFolder);
    int status = WaitFor(host.pid, 30);
    ASSERT_NE(-1, status);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_NE(0, WEXITSTATUS(status));
    std::string error = ReadText(host.errorFile);
    std::vector<std::string> lines = UserLines(error);
    ASSERT_EQ(1u, lines.size()) << error;
    EXPECT_NE(std::string::npos, lines[0].find(c.reason)) << error;
    EXPECT_EQ(before, Contents(mFolder)) << "nothing created";
    EXPECT_TRUE(fs::is_empty(mFolder + "/a folder.mov"));
    if (readOnly.Mounted()) {
      EXPECT_TRUE(fs::is_empty(readOnly.Path()));
    }
    EXPECT_FALSE(SegmentsLeft());
  }
}

// Spaces, quotes and non-ASCII letters reach the movie's name as they are.
TEST_F(EndToEndTest, MovieNamesWithSpacesQuotesAndAccentsWork) {
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "4"}, {"VELDRAN_SIM_TIMECODE", "none"}});
  std::string movie = mFolder + "/Take 1 \"A\" 'b' \xc3\xa9t\xc3\xa9 \xe6\x97\xa5.mov";
  Child host = StartPalRecording(movie, "0", "--frames", "3", mFolder);
  int status = WaitFor(host.pid, 60);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status)) << ReadText(host.errorFile);
  EXPECT_GE(ProbeMovie(movie, false).video.packets, 3);
}

// ---- What the host program tells its user ----

// The lines of text (line feeds and the terminal's carriage returns taken as ends).
std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::string line;
  for (char c : text) {
    if (c == '\n' || c == '\r') {
      if (!line.empty()) lines.push_back(line);
      line.clear();
    } else {
      line += c;
    }
  }
  if (!line.empty()) lines.push_back(line);
  return lines;
}

// On a terminal, record shows one line redrawn in place: elapsed time, frames, frames per
// second, dropped frames and the time the disk has left.
TEST_F(EndToEndTest, TheStatusLineOnATerminalIsRedrawnWithTheTakesFigures) {
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "1"}});
  std::string movie = mFolder + "/terminal.mov";
  int status = 0;
  std::string text = RunOnATerminal(
      {"record", "-o", movie, "--standard", "PAL 4x3", "--format", "0", "--frames", "75"}, 120, status);
  ASSERT_NE(-1, status) << "the host program hung: " << text;
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status)) << text;
  // Each drawing clears the line and writes it again.
  const std::string redraw = "\r\033[K";
  std::vector<std::string> drawn;
  for (size_t at = text.find(redraw); at != std::string::npos; at = text.find(redraw, at + 1)) {
    size_t start = at + redraw.size();
    size_t end = text.find_first_of("\r\n", start);
    drawn.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
  }
  ASSERT_GE(drawn.size(), 2u) << "the line is redrawn: " << text;
  const std::regex figures(R"(^(\d+):(\d\d):(\d\d) \| (\d+)/75 frames \| (\d+\.\d) fps \| (\d+) dropped \| )"
                           R"((?:peak (?:-?\d+\.\d|-inf) dBFS \| )?disk: (\d+ h \d\d min|\d+ min \d\d s|\d+ s) left$)");
  std::smatch match;
  for (const std::string& line : drawn) EXPECT_TRUE(std::regex_match(line, match, figures)) << "[" << line << "]";
  // The last drawing tells the whole take: the frames asked for (a frame arriving during the
  // last hand-over may add one), some of which only a loaded machine drops.
  ASSERT_TRUE(std::regex_match(drawn.back(), match, figures)) << drawn.back();
  EXPECT_GE(std::stoi(match[4].str()), 75) << drawn.back();
  EXPECT_GT(std::stod(match[5].str()), 0.0) << drawn.back();
  EXPECT_LE(std::stoi(match[6].str()), std::stoi(match[4].str())) << drawn.back();
  const int elapsed = std::stoi(match[1].str()) * 3600 + std::stoi(match[2].str()) * 60 + std::stoi(match[3].str());
  EXPECT_GE(elapsed, 2) << "three seconds of PAL: " << drawn.back();
  // A few drawings a second at most, however often the take is serviced.
  EXPECT_LE(drawn.size(), 5u * static_cast<size_t>(elapsed + 2)) << text;
  // The line is ended once the take is, before the closing lines.
  EXPECT_NE(std::string::npos, text.find(drawn.back() + "\r\n")) << text;
}

// A server killed mid-take: the one line says so, with the signal, the frames the movie
// holds (as the movie's own index counts them) and the command that finishes it; that
// command does.
TEST_F(EndToEndTest, AKilledServerIsNamedWithTheFramesKeptAndHowToFinishTheMovie) {
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "1"}});
  std::string movie = mFolder + "/killed.mov";
  Child host = StartPalRecording(movie, "0", "--seconds", "30", mFolder);
  pid_t server = ServerOnceWritten(host, movie, PalFrames2vuy(10));
  ASSERT_GT(server, 0);
  ASSERT_EQ(0, kill(server, SIGKILL));
  int status = WaitFor(host.pid, 60);
  ASSERT_NE(-1, status) << "the host program hung";
  ASSERT_TRUE(WIFEXITED(status)) << "the host program crashed";
  EXPECT_EQ(8, WEXITSTATUS(status));
  MovieSummary kept;
  ASSERT_EQ(0, kept.Read(movie));
  EXPECT_EQ(MovieSummary::Layout::kFragments, kept.layout);
  EXPECT_GE(kept.pictures, 9u);
  std::string error = ReadText(host.errorFile);
  std::vector<std::string> lines = UserLines(error);
  ASSERT_EQ(1u, lines.size()) << error;
  // The host knows the take's first timecode (the plug-in reported it): the repair command
  // gives it back to the movie.
  std::smatch said;
  ASSERT_TRUE(std::regex_match(lines[0], said, std::regex(R"(^kestrin-capture: recording failed: the recording server was killed by signal 9 \(Killed\); the movie holds (\d+) frames; kestrin-capture repair --timecode '(01:00:\d\d:\d\d)' '(.*)' finishes it$)")))
      << lines[0];
  EXPECT_EQ(std::to_string(kept.pictures), said[1].str());
  EXPECT_EQ(movie, said[3].str());
  const std::string start = said[2];

  std::string repairError;
  status = RunHostProgram({"repair", "--timecode", start, movie}, mFolder, 60, repairError);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status)) << repairError;
  MovieSummary finished;
  ASSERT_EQ(0, finished.Read(movie));
  EXPECT_EQ(MovieSummary::Layout::kFinished, finished.layout);
  EXPECT_EQ(kept.pictures, finished.pictures);
  EXPECT_TRUE(finished.hasTimecode);
  EXPECT_EQ(start, finished.startTimecode);
  EXPECT_EQ(start, ProbedTimecode(movie));
  // PAL's field order is the card's, which repair cannot ask: it says so, and takes it when given.
  EXPECT_EQ(std::vector<std::string>{"kestrin-capture: " + movie +
                                     " does not say its field order: give --fields tt, bb or progressive to restore it"},
            UserLines(repairError))
      << repairError;
  status = RunHostProgram({"repair", "--fields", "tt", movie}, mFolder, 60, repairError);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status)) << repairError;
  EXPECT_TRUE(UserLines(repairError).empty()) << repairError;
  EXPECT_EQ("bt470bg,tt", Ffprobe(movie, "-select_streams v:0 -show_entries stream=color_space,field_order"));
  ASSERT_EQ(0, finished.Read(movie));
  EXPECT_EQ(start, finished.startTimecode) << "the timecode stays";
  EXPECT_EQ(kept.pictures, finished.pictures);
}

// Repair gives back only what it is told and checks what it is told.
TEST_F(EndToEndTest, RepairRefusesATimecodeOrFieldOrderItCannotRead) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"repair", "--timecode", "1:00:00:00", "x.mov"}, "kestrin-capture: --timecode must be a timecode HH:MM:SS:FF (HH:MM:SS;FF at drop frame)"},
      {{"repair", "--fields", "upper", "x.mov"}, "kestrin-capture: --fields must be tt, bb or progressive"},
      {{"repair", "--timecode"}, "kestrin-capture: --timecode needs a value"},
      {{"repair", "a.mov", "b.mov"}, "kestrin-capture: repair needs exactly one MOVIE"},
      {{"repair", "--colour", "x.mov"}, "kestrin-capture: repair: unknown option --colour"},
  };
  for (const auto& c : cases) {
    std::string error;
    int status = RunHostProgram(c.first, mFolder, 60, error);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(2, WEXITSTATUS(status)) << error;
    EXPECT_EQ(std::vector<std::string>{c.second}, UserLines(error)) << error;
  }
}

// No card: its own line, not a server's failure.
TEST_F(EndToEndTest, AMissingCardHasALineOfItsOwn) {
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_DEVICES", "0"}, {"VELDRAN_SIM_SPEED", "1"}});
  std::string error;
  int status = RunHostProgram({"record", "-o", mFolder + "/none.mov", "--frames", "5"}, mFolder, 60, error);
  ASSERT_NE(-1, status) << "the host program hung";
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(3, WEXITSTATUS(status));
  EXPECT_EQ(std::vector<std::string>{"kestrin-capture: no capture card found"}, UserLines(error)) << error;
  EXPECT_FALSE(fs::exists(mFolder + "/none.mov"));
}

// repair of a file that is not a movie: one line and a failure, the file untouched.
TEST_F(EndToEndTest, RepairOfAFileThatIsNotAMovieFails) {
  std::string path = mFolder + "/notes.txt";
  const std::string notes = "Take 3: the good one.\n";
  {
    FILE* file = fopen(path.c_str(), "w");
    ASSERT_NE(nullptr, file);
    fputs(notes.c_str(), file);
    fclose(file);
  }
  std::string error;
  int status = RunHostProgram({"repair", path}, mFolder, 60, error);
  ASSERT_NE(-1, status);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(1, WEXITSTATUS(status));
  EXPECT_EQ(std::vector<std::string>{"kestrin-capture: cannot repair " + path + ": it is not a movie (it has no movie header)"},
            UserLines(error))
      << error;
  EXPECT_EQ(notes, ReadText(path));
}

// While a take waits for its in-point, the host program says what for and where the
// signal is, then records from the in-point.
TEST_F(EndToEndTest, WaitingForAnInPointSaysWhereTheSignalIs) {
  // The signal starts at 01:00:00:00: five seconds of waiting at real time.
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "1"}});
  std::string movie = mFolder + "/in.mov";
  std::string error;
  int status = RunHostProgram(
      {"record", "-o", movie, "--standard", "PAL 4x3", "--format", "0", "--in", "01:00:05:00", "--frames", "5"},
      mFolder, 120, error);
  ASSERT_NE(-1, status) << "the host program hung: " << error;
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status)) << error;
  const std::regex waiting(R"(^Waiting for 01:00:05:00 \(signal at 01:00:0[0-4]:\d\d\)$)");
  std::vector<std::string> lines = Lines(error);
  EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string& line) { return std::regex_match(line, waiting); }))
      << error;
  // Nothing else pretends to record while it waits: each line is the wait, or the figures
  // of the take once it has begun.
  const std::regex waitOrFigures(R"(^Waiting for 01:00:05:00( \(signal at \d\d:\d\d:\d\d:\d\d\))?$|^\d+:\d\d:\d\d \| \d+/5 frames \| .*)");
  for (const std::string& line : lines) {
    if (line.rfind("***", 0) == 0) continue;  // diagnostics
    EXPECT_TRUE(std::regex_match(line, waitOrFigures)) << line;
  }
  MovieSummary recorded;
  ASSERT_EQ(0, recorded.Read(movie));
  EXPECT_EQ(MovieSummary::Layout::kFinished, recorded.layout);
  EXPECT_EQ(5u, recorded.pictureSlots);
}

// A signal whose timecode has passed the in-point ends the take at once, in one line
// naming both timecodes, instead of waiting for a timecode that will not come.
TEST_F(EndToEndTest, AnInPointTheSignalHasPassedEndsTheTakeAtOnce) {
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "1"}, {"VELDRAN_SIM_TIMECODE_START", "01:00:10:00"}});
  std::string error;
  // Without the end the take would wait until its two-minute limit; a minute tells the two apart.
  int status = RunHostProgram({"record", "-o", mFolder + "/passed.mov", "--standard", "PAL 4x3", "--format", "0", "--in",
                               "01:00:00:00", "--frames", "5"},
                              mFolder, 60, error);
  ASSERT_NE(-1, status) << "the take went on waiting: " << error;
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(11, WEXITSTATUS(status)) << error;
  std::vector<std::string> lines = UserLines(error);
  ASSERT_EQ(1u, lines.size()) << error;
  EXPECT_TRUE(std::regex_match(
      lines[0], std::regex(R"(^kestrin-capture: the signal is at 01:00:1\d:\d\d, past the in-point 01:00:00:00: nothing was recorded$)")))
      << error;
  EXPECT_FALSE(fs::exists(mFolder + "/passed.mov")) << "an empty movie was left behind";
}

// Stopped while it waits for its in-point, a take has recorded nothing: it says so, ends
// normally and leaves no empty movie that would pass for a take.
TEST_F(EndToEndTest, ATakeStoppedWhileWaitingForItsInPointLeavesNoMovie) {
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "1"}, {"VELDRAN_SIM_TIMECODE_START", "01:00:00:00"}});
  const std::string movie = mFolder + "/waiting.mov";
  Child host = StartHostProgram({"record", "-o", movie, "--standard", "PAL 4x3", "--format", "0", "--in", "02:00:00:00",
                                 "--frames", "5"},
                                mFolder);
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  int status = -1;
  while (ReadText(host.errorFile).find("Waiting for 02:00:00:00") == std::string::npos &&
         std::chrono::steady_clock::now() < deadline && (status = WaitFor(host.pid, 0.05)) == -1) {
  }
  ASSERT_EQ(-1, status) << "the host program ended before it was stopped: " << ReadText(host.errorFile);
  ASSERT_EQ(0, kill(host.pid, SIGINT));
  status = WaitFor(host.pid, 60);
  if (status == -1) {
    kill(host.pid, SIGKILL);
    waitpid(host.pid, nullptr, 0);
  }
  const std::string error = ReadText(host.errorFile);
  ASSERT_NE(-1, status) << "the host program did not stop: " << error;
  ASSERT_TRUE(WIFEXITED(status)) << error;
  EXPECT_EQ(0, WEXITSTATUS(status)) << error;
  EXPECT_NE(std::string::npos, error.find("Waiting for 02:00:00:00")) << error;
  EXPECT_EQ(std::vector<std::string>{"kestrin-capture: nothing was recorded: the take ended before its first frame, and "
                                     "its empty movie was removed"},
            UserLines(error))
      << error;
  EXPECT_FALSE(fs::exists(movie)) << "an empty movie was left behind";
}

// A signal without timecode and no deck: the take starts at once, and the host program
// says at once that it was not recorded from the in-point.
TEST_F(EndToEndTest, AnInPointOnASignalWithoutTimecodeIsWarnedOf) {
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "1"}, {"VELDRAN_SIM_TIMECODE", "none"}});
  std::string error;
  int status = RunHostProgram({"record", "-o", mFolder + "/untimed.mov", "--standard", "PAL 4x3", "--format", "0",
                               "--in", "01:00:00:00", "--frames", "5"},
                              mFolder, 60, error);
  ASSERT_NE(-1, status) << error;
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status)) << error;
  EXPECT_EQ(std::vector<std::string>{"kestrin-capture: warning: the signal carries no timecode: recording from its first "
                                     "frame, not from 01:00:00:00"},
            UserLines(error))
      << error;
}

// ---- The timecode track ----

struct TimecodeCase {
  const char* standard;
  const char* signalStart;  // the card's first timecode
  bool dropFrame;           // the standard counts with drop frames
};

// Every counting rate: the take's timecode track starts at the timecode of its first
// picture, drop frame where the standard uses it, and the plug-in reports the same.
class TimecodeTrackTest : public EndToEndTest, public testing::WithParamInterface<TimecodeCase> {};

TEST_P(TimecodeTrackTest, TheTrackStartsAtTheFirstPicturesTimecode) {
  const TimecodeCase c = GetParam();
  int standard = -1;
  for (size_t i = 0; i < kSupportedStandardCount; ++i) {
    if (gSupportedStandards[i].name && std::string(gSupportedStandards[i].name) == c.standard) standard = static_cast<int>(i);
  }
  ASSERT_GE(standard, 0) << c.standard;
  CaptureSettings settings = Settings(standard, 0);  // 2vuy: the pictures are compared with the card's
  RecordRequest request;
  request.moviePath = mFolder + "/timecode.mov";
  request.frames = 4;  // recorded from now, until the host has seen four counts
  RecordOutcome outcome = Record(settings, request, {{"VELDRAN_SIM_SPEED", "4"}, {"VELDRAN_SIM_TIMECODE_START", c.signalStart}});
  ASSERT_EQ(0, outcome.exitCode) << outcome.error;
  const Sim::SimulatedMode& mode = *Sim::FindSimulatedMode(settings.displayMode);
  ProbedMovie movie = ProbeMovie(request.moviePath, false);
  ASSERT_TRUE(movie.opened);
  // The first picture is the card's picture k: its timecode is the signal's start plus k.
  Sim::TestSignal signal(mode, FourCC("2vuy"));
  std::vector<uint8_t> picture(signal.FrameBytes());
  int64_t first = -1;
  for (int64_t k = 0; k < 3000 && first < 0; ++k) {
    signal.Render(k, picture.data());
    if (std::equal(picture.begin(), picture.end(), movie.video.bytes.begin())) first = k;
  }
  ASSERT_GE(first, 0);
  Util::CTimeCode expected = Util::CTimeCode::FromStr(mode.timecodeFormat, c.signalStart);
  expected.Set(mode.timecodeFormat, expected.ToFrame(mode.timecodeFormat) + static_cast<int>(first), false);
  const std::string text = expected.ToString(false);
  EXPECT_EQ(c.dropFrame, text[8] == ';') << text;
  EXPECT_EQ(text, outcome.startTimecode) << "the start the plug-in reported";
  EXPECT_EQ(text, ProbedTimecode(request.moviePath));
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(request.moviePath));
  EXPECT_TRUE(summary.hasTimecode);
  EXPECT_EQ(text, summary.startTimecode);
}

const TimecodeCase kTimecodeCases[] = {
    {"HD 1080p 23.976", "10:00:00:00", false},
    {"HD 1080p 24", "10:00:00:00", false},
    {"PAL 4x3", "10:00:00:00", false},
    {"NTSC 4x3", "10:00:59;28", true},   // across a minute's dropped frame numbers
    {"HD 1080p 30", "10:00:00:00", false},
    {"HD 720p 50", "10:00:00:00", false},
    {"HD 720p 59.94", "10:00:59;56", true},
    {"HD 720p 60", "10:00:00:00", false},
};

INSTANTIATE_TEST_SUITE_P(EveryCountingRate, TimecodeTrackTest, testing::ValuesIn(kTimecodeCases),
                         [](const testing::TestParamInfo<TimecodeCase>& info) {
                           std::string name = info.param.standard;
                           for (char& ch : name) if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
                           return name;
                         });

// A take started on an in-point at 29.97 starts its timecode track at that in-point, and
// every common reader says so.
TEST_F(EndToEndTest, ATakeFromAnInPointStartsItsTimecodeThere) {
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "4"}, {"VELDRAN_SIM_TIMECODE_START", "00:59:59;00"}});
  std::string movie = mFolder + "/in point.mov";
  std::string error;
  int status = RunHostProgram({"record", "-o", movie, "--standard", "NTSC 4x3", "--format", "0", "--in", "01:00:00;00",
                               "--frames", "5"},
                              mFolder, 120, error);
  ASSERT_NE(-1, status) << "the host program hung: " << error;
  ASSERT_TRUE(WIFEXITED(status));
  ASSERT_EQ(0, WEXITSTATUS(status)) << error;
  EXPECT_EQ("01:00:00;00", ProbedTimecode(movie));
  EXPECT_EQ("tmcd", Ffprobe(movie, "-select_streams d:0 -show_entries stream=codec_tag_string"));
  EXPECT_EQ("01:00:00;00", CommandOutput("mediainfo --Inform='Other;%TimeCode_FirstFrame%' '" + movie + "'"));
  EXPECT_EQ("smpte170m,bb",
            Ffprobe(movie, "-select_streams v:0 -show_entries stream=color_space,field_order"));
  EXPECT_EQ("5,5", QtdemuxBufferCounts(movie)) << "the samples read as before the stamp";
}

// ---- A take's frame hashes: named when it ends, and checked with --verify ----

const std::regex kVerifiedLine("verified (\\d+) pictures and (\\d+) sound samples");

// A completed take names the sidecar of hashes the server wrote beside it, and --verify reads
// the take again from the disk and says what it checked against them.
TEST_F(EndToEndTest, ATakesClosingLinesNameItsFrameHashesAndVerifyChecksIt) {
  const std::string movie = mFolder + "/hashed.mov";
  std::string output, error;
  int status = RunHostProgram({"record", "-o", movie, "--standard", "PAL 4x3", "--format", "0", "--frames", "10", "--verify"},
                              mFolder, 60, output, error);
  ASSERT_TRUE(WIFEXITED(status)) << error;
  EXPECT_EQ(0, WEXITSTATUS(status)) << output << error;
  EXPECT_EQ(std::vector<std::string>{}, UserLines(error)) << error;
  const std::string sidecar = FrameHashSidecarPath(movie);
  EXPECT_TRUE(fs::is_regular_file(sidecar)) << sidecar;
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(movie));
  const std::vector<std::string> lines = Lines(output);
  ASSERT_EQ(4u, lines.size()) << output;
  EXPECT_EQ(0u, lines[0].find("Recorded 10 frames to " + movie)) << lines[0];
  EXPECT_EQ("Frame hashes: " + sidecar, lines[1]);
  std::smatch counts;
  ASSERT_TRUE(std::regex_match(lines[2], counts, kVerifiedLine)) << lines[2];
  EXPECT_EQ(std::to_string(summary.pictures), counts[1].str());
  EXPECT_EQ(std::to_string(summary.soundFrames), counts[2].str());
  // The report, drawn after the check, comes last.
  EXPECT_EQ("Report: " + MovieSidecars::Report(movie), lines[3]);
  EXPECT_TRUE(fs::is_regular_file(MovieSidecars::Report(movie)));
}

// A take recorded without hashes has no sidecar to name, and --verify says in one line that it
// could not check it.
TEST_F(EndToEndTest, ATakeWithoutFrameHashesIsNotNamedAndCannotBeVerified) {
  const std::string bundle = ScriptedServerBundle("NoHashes", "exec \"$server\" --no-frame-hash \"$@\"");
  const std::string movie = mFolder + "/unhashed.mov";
  std::string output, error;
  int status = RunHostProgram({"record", "-o", movie, "--standard", "PAL 4x3", "--format", "0", "--frames", "5", "--verify",
                               "--plugin", bundle},
                              mFolder, 60, output, error);
  ASSERT_TRUE(WIFEXITED(status)) << error;
  EXPECT_EQ(6, WEXITSTATUS(status)) << output << error;
  EXPECT_FALSE(fs::exists(FrameHashSidecarPath(movie)));
  const std::vector<std::string> lines = Lines(output);
  ASSERT_EQ(2u, lines.size()) << output;
  EXPECT_EQ(0u, lines[0].find("Recorded 5 frames to " + movie)) << lines[0];
  EXPECT_EQ("Report: " + MovieSidecars::Report(movie), lines[1]) << "the report, without the check it could not make";
  EXPECT_EQ(1u, UserLines(error).size()) << error;
  EXPECT_EQ(1u, LinesWith(error, movie).size()) << "the line names the take: " << error;
}

// A take whose bytes changed on the disk after they were written (one picture's, once the
// server has ended) is told on standard error, with exit status 1.
TEST_F(EndToEndTest, ATakeThatDiffersFromItsFrameHashesFailsVerification) {
  const std::string movie = mFolder + "/changed.mov";
  // Inside the fourth picture: ten PAL frames of 8-bit 4:2:2 are 829440 bytes each.
  const std::string body = "\"$server\" \"$@\"\nended=$?\nprintf '\\001\\002\\003\\004' | dd of='" + movie +
                           "' bs=1 seek=" + std::to_string(3 * 829440 + 1000) + " conv=notrunc 2>/dev/null\nexit $ended";
  const std::string bundle = ScriptedServerBundle("Changing", body);
  std::string output, error;
  int status = RunHostProgram({"record", "-o", movie, "--standard", "PAL 4x3", "--format", "0", "--frames", "10", "--verify",
                               "--plugin", bundle},
                              mFolder, 60, output, error);
  ASSERT_TRUE(WIFEXITED(status)) << error;
  EXPECT_EQ(1, WEXITSTATUS(status)) << output << error;
  EXPECT_EQ(3u, Lines(output).size()) << "the take, its hashes and its report, no verified line: " << output;
  const std::vector<std::string> said = UserLines(error);
  ASSERT_EQ(1u, said.size()) << error;
  EXPECT_FALSE(std::regex_match(said[0].substr(said[0].find(' ') + 1), kVerifiedLine)) << said[0];
}

}  // namespace
}  // namespace KTN
