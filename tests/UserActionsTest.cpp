// What users do to a take, done as they do it: Ctrl-C in a terminal, a closed terminal, a kill,
// repair or a second recording on a take being written, a reused or odd path, a folder removed
// mid-take. No such action may lose what was handed over, or call a lost take a success.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "Capture/VeldranAPILoader.h"
#include "Movie/MovieSummary.h"
#include "Simulator/SimulatedCardLoader.h"
#include "Util/ScratchFolder.h"
#include "tests/HostProgramProcess.h"
#include "tests/HostProgramTest.h"

namespace KTN {
namespace {

namespace fs = std::filesystem;

// Every take here is PAL (25 frames a second) in 8-bit 4:2:2: 0.8 MB a frame, so that a take
// bounded at 30 s stays under 650 MB even on a machine that keeps up.
const std::vector<std::string> kPal = {"--standard", "PAL 4x3", "--format", "0"};
constexpr uintmax_t kPalFrameBytes = 829440;

std::vector<std::string> Record(const std::string& movie, std::vector<std::string> more) {
  std::vector<std::string> arguments = {"record", "-o", movie};
  arguments.insert(arguments.end(), kPal.begin(), kPal.end());
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

MovieSummary Summary(const std::string& movie) {
  MovieSummary summary;
  EXPECT_EQ(0, summary.Read(movie)) << movie;
  return summary;
}

// Waits (a minute at most, however loaded the machine) until the movie holds `frames` frames'
// bytes: the take is under way, with frames handed over.
bool Written(const std::string& movie, int frames) {
  return WaitForBytes(movie, kPalFrameBytes * static_cast<uintmax_t>(frames));
}

// A finished take: its ordinary index, pictures, and the timecode of its first frame.
void ExpectFinished(const std::string& movie) {
  MovieSummary summary = Summary(movie);
  EXPECT_EQ(MovieSummary::Layout::kFinished, summary.layout) << movie;
  EXPECT_GT(summary.pictures, 0u) << movie;
  EXPECT_TRUE(summary.hasTimecode) << movie;
}

// A take stopped by the user: the program ended by itself with status 0, without a failure
// (and, where said holds its output too, saying what it recorded).
void ExpectStoppedAndRecorded(int status, const std::string& said, bool withOutput) {
  ASSERT_NE(-1, status) << "the host program hung: " << said;
  ASSERT_TRUE(WIFEXITED(status)) << said;
  EXPECT_EQ(0, WEXITSTATUS(status)) << said;
  if (withOutput) {
    EXPECT_NE(std::string::npos, said.find("Recorded ")) << said;
  }
  EXPECT_EQ(std::vector<std::string>{}, UserLines(said)) << said;
}

class UserActionsTest : public HostProgramTest {};

// Ctrl-C in a terminal signals the whole foreground process group, the recording server with
// the host program: the take stops as Stop stops it, and is finished with its index and timecode.
TEST_F(UserActionsTest, CtrlCInATerminalStopsTheTakeAndKeepsIt) {
  const std::string movie = mFolder + "/ctrl-c.mov";
  TerminalProgram host;
  ASSERT_TRUE(host.Start(Record(movie, {"--seconds", "30"})));
  ASSERT_TRUE(Written(movie, 10)) << host.Text();
  host.Type("\x03");
  ExpectStoppedAndRecorded(host.Finish(60), host.Text(), true);
  ExpectFinished(movie);
  EXPECT_LT(Summary(movie).pictures, 30u * 25u) << "stopped early, not at the time bound";
}

// Ctrl-C while the take waits for its in-point: nothing was recorded, so no movie is left.
TEST_F(UserActionsTest, CtrlCWhileWaitingForTheInPointLeavesNoMovie) {
  const std::string movie = mFolder + "/waiting.mov";
  TerminalProgram host;
  ASSERT_TRUE(host.Start(Record(movie, {"--in", "02:00:00:00", "--frames", "10"})));
  ASSERT_TRUE(host.WaitForText("Waiting for 02:00:00:00", 60)) << host.Text();
  host.Type("\x03");
  int status = host.Finish(60);
  ASSERT_NE(-1, status) << "the host program hung: " << host.Text();
  ASSERT_TRUE(WIFEXITED(status)) << host.Text();
  EXPECT_EQ(0, WEXITSTATUS(status)) << host.Text();
  EXPECT_NE(std::string::npos, host.Text().find("nothing was recorded")) << host.Text();
  EXPECT_FALSE(fs::exists(movie));
  EXPECT_FALSE(fs::exists(movie + ".framehash")) << "the sidecar of a take that never began stays";
}

// Closing the terminal window hangs it up: the take is finished as with Stop.
TEST_F(UserActionsTest, AClosedTerminalStopsTheTakeAndKeepsIt) {
  const std::string movie = mFolder + "/hang-up.mov";
  TerminalProgram host;
  ASSERT_TRUE(host.Start(Record(movie, {"--seconds", "30"})));
  ASSERT_TRUE(Written(movie, 10)) << host.Text();
  host.HangUp();  // what it says afterwards goes nowhere: the movie tells
  int status = host.Finish(60);
  ASSERT_NE(-1, status) << "the host program hung";
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status));
  ExpectFinished(movie);
}

// A kill (as a job queue or a shutdown sends it) stops the take as Stop does.
TEST_F(UserActionsTest, AKillStopsTheTakeAndKeepsIt) {
  const std::string movie = mFolder + "/terminated.mov";
  StoppedAtEnd host{StartHostProgram(Record(movie, {"--seconds", "30"}), mFolder)};
  ASSERT_TRUE(Written(movie, 10));
  ExpectStoppedAndRecorded(StopWith(host.child.pid, SIGTERM, 60), ReadText(host.child.errorFile), false);
  ExpectFinished(movie);
}

// A take being recorded has one writer: repair and a second recording are refused, naming it,
// and the take goes on to be finished whole.
TEST_F(UserActionsTest, ATakeBeingRecordedIsRefusedToRepairAndToASecondRecording) {
  const std::string movie = mFolder + "/busy.mov";
  StoppedAtEnd running{StartHostProgram(Record(movie, {"--seconds", "30"}), mFolder)};
  const Child& first = running.child;
  ASSERT_TRUE(Written(movie, 10));
  pid_t server = ServerOf(first.pid);
  ASSERT_GT(server, 0);
  const std::string writer = "it is being written by process " + std::to_string(server) + " (QTRecordServer)";

  Util::ScratchFolder other;  // the other tools' standard error
  std::string error;
  int status = RunHostProgram({"repair", movie}, other.Path(), 60, error);
  ASSERT_TRUE(WIFEXITED(status)) << error;
  EXPECT_EQ(1, WEXITSTATUS(status)) << error;
  EXPECT_NE(std::string::npos, error.find("cannot repair " + movie + ": " + writer)) << error;

  status = RunHostProgram(Record(movie, {"-y", "--frames", "5"}), other.Path(), 60, error);
  ASSERT_TRUE(WIFEXITED(status)) << error;
  EXPECT_EQ(5, WEXITSTATUS(status)) << error;
  EXPECT_NE(std::string::npos, error.find("cannot record to " + movie + ": " + writer)) << error;

  ExpectStoppedAndRecorded(StopWith(first.pid, SIGTERM, 60), ReadText(first.errorFile), false);
  ExpectFinished(movie);
  // Its frames are all there: the refused tools touched nothing.
  MovieSummary summary = Summary(movie);
  EXPECT_GE(summary.pictures, 10u);
}

// An earlier take at the path is never replaced unasked; -y replaces it.
TEST_F(UserActionsTest, AnExistingMovieIsReplacedOnlyWhenTheUserSaysSo) {
  const std::string movie = mFolder + "/earlier.mov";
  { std::ofstream(movie) << "an earlier take"; }
  std::string error;
  // Even a take that would record nothing (its in-point has passed) leaves it as it was.
  int status = RunHostProgram(Record(movie, {"--in", "00:00:01:00", "--frames", "5"}), mFolder, 60, error);
  ASSERT_TRUE(WIFEXITED(status)) << error;
  EXPECT_EQ(5, WEXITSTATUS(status)) << error;
  EXPECT_EQ(std::vector<std::string>{"kestrin-capture: cannot record to " + movie +
                                     ": it exists already (give -y or --overwrite to replace it)"},
            UserLines(error));
  EXPECT_EQ("an earlier take", ReadText(movie));

  status = RunHostProgram(Record(movie, {"--overwrite", "--frames", "5"}), mFolder, 60, error);
  ASSERT_TRUE(WIFEXITED(status)) << error;
  EXPECT_EQ(0, WEXITSTATUS(status)) << error;
  ExpectFinished(movie);
}

// Only a regular file is a movie: a FIFO or a device is refused at once, never opened.
TEST_F(UserActionsTest, AFifoOrADeviceIsRefusedAtOnce) {
  const std::string fifo = mFolder + "/fifo.mov";
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0644));
  std::string error;
  int status = RunHostProgram(Record(fifo, {"--frames", "5"}), mFolder, 60, error);
  ASSERT_NE(-1, status) << "recording to a FIFO blocked";
  EXPECT_EQ(5, WEXITSTATUS(status)) << error;
  EXPECT_EQ(std::vector<std::string>{"kestrin-capture: cannot record to " + fifo + ": it is a FIFO, not a regular file"},
            UserLines(error));
  status = RunHostProgram(Record("/dev/null", {"-y", "--frames", "5"}), mFolder, 60, error);
  EXPECT_EQ(5, WEXITSTATUS(status)) << error;
  EXPECT_EQ(std::vector<std::string>{"kestrin-capture: cannot record to /dev/null: it is a character device, not a regular file"},
            UserLines(error));
  status = RunHostProgram({"repair", fifo}, mFolder, 60, error);
  ASSERT_NE(-1, status) << "repairing a FIFO blocked";
  EXPECT_EQ(1, WEXITSTATUS(status)) << error;
  EXPECT_EQ(std::vector<std::string>{"kestrin-capture: cannot repair " + fifo + ": it is a FIFO, not a regular file"},
            UserLines(error));
}

// A folder removed under a take loses it: that is said, and is no success.
TEST_F(UserActionsTest, AFolderRemovedMidTakeIsAFailureOfItsOwn) {
  const std::string folder = mFolder + "/day 1";
  fs::create_directories(folder);
  const std::string movie = folder + "/take.mov";
  StoppedAtEnd host{StartHostProgram(Record(movie, {"--seconds", "30"}), mFolder)};
  ASSERT_TRUE(Written(movie, 10));
  fs::remove_all(folder);
  int status = StopWith(host.child.pid, SIGTERM, 60);
  ASSERT_TRUE(WIFEXITED(status));
  const std::string error = ReadText(host.child.errorFile);
  EXPECT_EQ(12, WEXITSTATUS(status)) << error;
  EXPECT_EQ(std::vector<std::string>{"kestrin-capture: the take is lost: its folder " + folder +
                                     " was removed while it was recorded"},
            UserLines(error));
  EXPECT_EQ(std::string::npos, error.find("Recorded ")) << error;
}

// A movie made read-only under its take cannot be given its timecode: the exit status says the
// take is not complete, with what it holds and the command that completes it. (Run as another
// user: root writes to read-only files.)
TEST_F(UserActionsTest, AMovieMadeReadOnlyMidTakeIsNotCalledComplete) {
  if (geteuid() != 0) GTEST_SKIP() << "running the host program as another user needs root";
  const uid_t nobody = 65534;
  ASSERT_EQ(0, chown(mFolder.c_str(), nobody, nobody));
  const std::string movie = mFolder + "/read-only.mov";
  StoppedAtEnd host{StartHostProgram(Record(movie, {"--seconds", "30"}), mFolder, nobody)};
  ASSERT_TRUE(Written(movie, 10)) << ReadText(host.child.errorFile);
  ASSERT_EQ(0, chmod(movie.c_str(), 0444));
  int status = StopWith(host.child.pid, SIGTERM, 60);
  ASSERT_TRUE(WIFEXITED(status));
  const std::string error = ReadText(host.child.errorFile);
  EXPECT_EQ(12, WEXITSTATUS(status)) << error;
  std::vector<std::string> lines = UserLines(error);
  ASSERT_EQ(1u, lines.size()) << error;
  EXPECT_NE(std::string::npos, lines[0].find("the movie holds ")) << lines[0];
  EXPECT_NE(std::string::npos, lines[0].find("kestrin-capture repair --timecode '")) << lines[0];
  EXPECT_EQ(std::string::npos, error.find("Recorded ")) << error;
}

// Lengths and in-points the user types are read strictly: a length under one frame, or no
// number at all, would mean no limit; ';' at a rate that does not drop frames is refused.
TEST_F(UserActionsTest, LengthsAndInPointsThatMeanNothingAreRefused) {
  struct Case {
    std::vector<std::string> options;
    std::string says;
  } cases[] = {
      {{"--seconds", "0.01"}, "--seconds must be at least one frame"},
      {{"--seconds", "nan"}, "--seconds must be a number of seconds above 0"},
      {{"--seconds", "inf"}, "--seconds must be a number of seconds above 0"},
      {{"--seconds", "-inf"}, "--seconds must be a number of seconds above 0"},
      {{"--seconds", ""}, "--seconds must be a number of seconds above 0"},
      {{"--in", "01:00:00;00", "--frames", "5"}, "is a drop-frame timecode (';')"},
      {{"--in", "1:00:00:00", "--frames", "5"}, "is not a timecode HH:MM:SS:FF"},
      {{"--in", "01:00:00:25", "--frames", "5"}, "the standard counts 25 frames a second"},
  };
  for (const Case& c : cases) {
    std::string error;
    int status = RunHostProgram(Record(mFolder + "/never.mov", c.options), mFolder, 60, error);
    ASSERT_NE(-1, status) << c.options[0] << " " << c.options[1] << " ran on: " << error;
    EXPECT_EQ(2, WEXITSTATUS(status)) << error;
    EXPECT_NE(std::string::npos, error.find(c.says)) << error;
    EXPECT_FALSE(fs::exists(mFolder + "/never.mov"));
  }
}

// Settings the plug-in cannot record with are named with their file, not replaced unsaid.
TEST_F(UserActionsTest, BadSettingsAreNamedWithTheirFile) {
  const std::string settings = mFolder + "/kestrin-design/kestrin-capture.settings";
  fs::create_directories(mFolder + "/kestrin-design");
  { std::ofstream(settings) << std::string(60, 'x'); }
  std::string error;
  int status = RunHostProgram({"record", "-o", mFolder + "/t.mov", "--frames", "3"}, mFolder, 60, error);
  EXPECT_EQ(2, WEXITSTATUS(status)) << error;
  EXPECT_EQ(std::vector<std::string>{"kestrin-capture: the settings in " + settings +
                                     " are not valid (it is not signed as settings of this version): give --standard "
                                     "and --format to replace them, or remove the file"},
            UserLines(error));
  // Naming the standard and the format replaces them.
  status = RunHostProgram(Record(mFolder + "/t.mov", {"--frames", "3"}), mFolder, 60, error);
  EXPECT_EQ(0, WEXITSTATUS(status)) << error;
}

// A failure of the card is said as the card's device API says it: in hexadecimal, by name.
TEST_F(UserActionsTest, TheCardsFailuresAreSaidInHexadecimalByName) {
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_FAIL", "EnableVideoInput"}});
  std::string error;
  int status = RunHostProgram(Record(mFolder + "/t.mov", {"--frames", "3"}), mFolder, 60, error);
  EXPECT_EQ(4, WEXITSTATUS(status)) << error;
  EXPECT_EQ(std::vector<std::string>{"kestrin-capture: cannot start the capture input: the card answered 0x80000002 "
                                     "(kVeldranFail)"},
            UserLines(error));
  EXPECT_FALSE(fs::exists(mFolder + "/t.mov")) << "a card that failed at the start leaves no movie";
}

// A card that cannot read its timecode is said once, and the movie carries no timecode track
// rather than one made up from a host that has none.
TEST_F(UserActionsTest, ATimecodeTheCardCannotReadIsSaidAndNotMadeUp) {
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_FAIL", "GetTimecode"}});
  const std::string movie = mFolder + "/unreadable.mov";
  std::string error;
  int status = RunHostProgram(Record(movie, {"--frames", "10"}), mFolder, 60, error);
  ASSERT_TRUE(WIFEXITED(status)) << error;
  EXPECT_EQ(0, WEXITSTATUS(status)) << error;
  const std::string line = "GetTimecode('rp18') returned -2147483646 (0x80000002)";
  EXPECT_NE(std::string::npos, error.find(line)) << error;
  EXPECT_EQ(error.find(line), error.rfind(line)) << "once a take: " << error;
  MovieSummary summary = Summary(movie);
  EXPECT_EQ(MovieSummary::Layout::kFinished, summary.layout);
  EXPECT_GE(summary.pictures, 10u);
  EXPECT_FALSE(summary.hasTimecode);
}

// On a terminal, an event the recording finds in the signal is written on a line of its own
// with its first slot's timecode, above the status line, which is drawn again below it with
// the sound's peak.
TEST_F(UserActionsTest, ASignalEventIsWrittenAboveTheStatusLineWithItsTimecode) {
  // Card frame 40 is 01:00:01:15 from the card's 01:00:00:00, whatever slot of the take it is.
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "1"}, {"VELDRAN_SIM_EVENTS", "black@40+25"}});
  const std::string movie = mFolder + "/black.mov";
  int status = -1;
  // DV PAL: 144000 bytes a frame, five seconds.
  const std::string said = RunOnATerminal(
      {"record", "-o", movie, "--standard", "PAL 4x3", "--format", "DV PAL", "--seconds", "5"}, 60, status);
  ASSERT_NE(-1, status) << "the host program hung: " << said;
  ASSERT_TRUE(WIFEXITED(status)) << said;
  ASSERT_EQ(0, WEXITSTATUS(status)) << said;
  const std::string clear = "\r\033[K";
  const std::string line = "01:00:01:15  black for 25 frames\r\n";  // the terminal ends a line with both
  const size_t at = said.find(line);
  ASSERT_NE(std::string::npos, at) << said;
  EXPECT_EQ(at, said.rfind(line)) << "once: " << said;
  ASSERT_GE(at, clear.size());
  EXPECT_EQ(clear, said.substr(at - clear.size(), clear.size())) << "the status line is cleared first: " << said;
  EXPECT_NE(std::string::npos, said.rfind(" fps | ", at)) << "a status line was drawn before it: " << said;
  // The status line drawn again below it, while the take goes on, with the peak of the tone
  // (-20 dBFS on every channel).
  ASSERT_EQ(0, said.compare(at + line.size(), clear.size(), clear)) << said;
  const std::string after = said.substr(at + line.size() + clear.size());
  std::smatch match;
  ASSERT_TRUE(std::regex_search(after, match,
                                std::regex("^\\d+:\\d\\d:\\d\\d \\| \\d+/125 frames \\| [0-9.]+ fps \\| 0 dropped \\| "
                                           "peak (-[0-9]+\\.[0-9]) dBFS \\| disk: ")))
      << after;
  EXPECT_NEAR(-20.0, std::stod(match[1]), 0.5) << match[0];
  ExpectFinished(movie);
}

}  // namespace
}  // namespace KTN
