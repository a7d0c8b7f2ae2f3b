// The capture window under a virtual X server with Mesa's software OpenGL: the live preview of
// the simulated card, the options dialog over a dark host, and the readout of settings, disk
// time and take as it records. Screenshots are kept as test artifacts.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QColor>
#include <QImage>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Capture/VeldranAPILoader.h"
#include "Host/HostSettingsFile.h"
#include "Host/RecordingRate.h"
#include "Movie/MovieSummary.h"
#include "Util/ScratchFolder.h"
#include "Util/SmallDisk.h"
#include "tests/VirtualDisplay.h"

namespace KTN {
namespace {

namespace fs = std::filesystem;

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

  // The host's stored settings of these table rows, which the window opens with.
  CaptureSettings StoreSettings(int standard, int format, int channels, int bits) {
    CaptureSettings settings = {};
    settings.Fill(standard, format, channels, bits, 48000);
    settings.signature = kCaptureSettingsSignature;
    settings.version = kCaptureSettingsVersion;
    setenv("XDG_CONFIG_HOME", mFolder.c_str(), 1);  // where the window will look
    EXPECT_EQ("", SaveHostSettings(settings));
    return settings;
  }

  // Runs the capture window with options (and these variables for the simulated card); its
  // exit status, or -1 when it did not end within the bound.
  int RunWindow(const std::vector<std::string>& options,
                const std::vector<std::pair<std::string, std::string>>& environment = {},
                const std::function<void(pid_t)>& whileItRuns = nullptr) {
    pid_t child = fork();
    if (child == 0) {
      for (const auto& variable : environment) setenv(variable.first.c_str(), variable.second.c_str(), 1);
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
    if (whileItRuns) whileItRuns(child);
    int status = 0;
    // Generous: an unattended take ends by itself once its frames are in, within seconds.
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
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

// One state of the readout, as the window's unattended run wrote it (--labels).
struct Snapshot {
  double seconds = 0;
  bool recording = false;
  std::map<std::string, std::string> labels;  // name: text
  std::string Label(const std::string& name) const {
    auto found = labels.find(name);
    return found == labels.end() ? std::string() : found->second;
  }
  bool Has(const std::string& name) const { return labels.count(name) != 0; }
};

std::vector<Snapshot> ReadSnapshots(const std::string& path) {
  std::vector<Snapshot> snapshots;
  std::ifstream file(path);
  std::string line;
  while (std::getline(file, line)) {
    if (line.compare(0, 9, "snapshot ") == 0) {
      Snapshot snapshot;
      std::istringstream heading(line.substr(9));
      std::string state;
      heading >> snapshot.seconds >> state;
      snapshot.recording = state == "recording";
      snapshots.push_back(snapshot);
    } else if (!line.empty() && !snapshots.empty()) {
      size_t colon = line.find(": ");
      if (colon != std::string::npos) snapshots.back().labels[line.substr(0, colon)] = line.substr(colon + 2);
    }
  }
  return snapshots;
}

bool Red(const std::string& colour) {
  QColor parsed(QString::fromStdString(colour));
  return parsed.isValid() && parsed.red() >= 150 && parsed.green() <= 110 && parsed.blue() <= 110;
}

// "Disk: 2 h 13 min left at ..." read back as seconds (to the displayed precision); -1 if unreadable.
double DiskSeconds(const std::string& text) {
  std::smatch match;
  if (std::regex_search(text, match, std::regex("^Disk: (\\d+) h (\\d\\d) min left"))) {
    return std::stod(match[1]) * 3600 + std::stod(match[2]) * 60;
  }
  if (std::regex_search(text, match, std::regex("^Disk: (\\d+) min (\\d\\d) s left"))) {
    return std::stod(match[1]) * 60 + std::stod(match[2]);
  }
  if (std::regex_search(text, match, std::regex("^Disk: (\\d+) s left"))) return std::stod(match[1]);
  return -1;
}

std::string Artifact(const std::string& name) {
  std::string path = std::string(TEST_ARTIFACTS) + "/" + name;
  fs::remove(path);
  return path;
}

TEST_F(CaptureWindowTest, IdleItShowsTheSettingsAndTheDisksRecordingTime) {
  CaptureSettings settings = StoreSettings(19, 1, 2, 24);  // HD 1080i 50, v210
  std::string labels = mFolder + "/labels.txt", movie = mFolder + "/idle.mov";
  std::string shot = Artifact("capture-window-idle.png");
  ASSERT_EQ(0, RunWindow({"-o", movie, "--labels", labels, "--screenshot-window", shot, "--quit-after", "2"}));
  const double expected = RecordingSecondsLeft(movie, settings);
  std::vector<Snapshot> snapshots = ReadSnapshots(labels);
  ASSERT_FALSE(snapshots.empty()) << labels;
  const Snapshot& idle = snapshots.back();
  EXPECT_FALSE(idle.recording);
  EXPECT_EQ("HD 1080i 50 · Uncompressed 10-bit 4:2:2 · 2 ch 24-bit 48 kHz", idle.Label("settings"));
  EXPECT_EQ("Not recording", idle.Label("status"));
  EXPECT_FALSE(idle.Has("elapsed")) << "no take's figures before the first take";
  // 5120 bytes a row, 1080 rows, 25 frames a second, and the sound.
  const std::string disk = idle.Label("disk");
  EXPECT_NE(std::string::npos, disk.find(" left at 138.5 MB/s")) << disk;
  double shown = DiskSeconds(disk);
  ASSERT_GE(shown, 0) << disk;
  // Other programs write to this disk meanwhile: near, to the minute shown.
  EXPECT_NEAR(expected, shown, 60 + expected * 0.05) << disk;
  // Whether the warning shows depends on this disk's free space: away from the five minutes,
  // it shows exactly when the disk lasts less.
  if (expected > 330 || expected < 270) {
    const bool shortDisk = expected < 270;
    EXPECT_EQ(shortDisk, disk.find("(WARNING: under 5 minutes)") != std::string::npos) << disk;
    EXPECT_EQ(shortDisk, Red(idle.Label("disk colour"))) << idle.Label("disk colour");
  }
  EXPECT_FALSE(QImage(QString::fromStdString(shot)).isNull()) << shot;
}

// Ctrl-C in the terminal the window was started from stops the take as Stop does, and
// closes the window: the movie is finished, with its index and timecode.
TEST_F(CaptureWindowTest, CtrlCStopsTheTakeAndKeepsIt) {
  StoreSettings(4, 0, 2, 16);  // PAL 4x3, 2vuy: 829440 bytes a frame
  const std::string movie = mFolder + "/interrupted.mov";
  // A thousand frames would take forty seconds: the signal comes once ten are in.
  const int status = RunWindow({"-o", movie, "--record-frames", "1000"}, {}, [&movie](pid_t window) {
    std::error_code ignored;
    for (int i = 0; i < 3000 && !(fs::exists(movie, ignored) && fs::file_size(movie, ignored) >= 10 * 829440ull); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    kill(window, SIGINT);
  });
  EXPECT_EQ(0, status);
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(movie));
  EXPECT_EQ(MovieSummary::Layout::kFinished, summary.layout);
  EXPECT_GE(summary.pictures, 10u);
  EXPECT_LT(summary.pictures, 1000u);
  EXPECT_TRUE(summary.hasTimecode);
}

// Record on an existing movie asks first; its default, Keep it, records nothing and leaves the
// earlier take as it was.
TEST_F(CaptureWindowTest, RecordingOverAnExistingMovieAsksAndKeepsItByDefault) {
  StoreSettings(4, 0, 2, 16);  // PAL 4x3, 2vuy
  std::string labels = mFolder + "/labels.txt", movie = mFolder + "/earlier.mov";
  { std::ofstream(movie) << "an earlier take"; }
  // The unattended run answers the question with its default, so the take never starts.
  EXPECT_EQ(4, RunWindow({"-o", movie, "--record-frames", "5", "--labels", labels, "--quit-after", "30"}));
  std::string written;
  {
    std::ifstream file(labels);
    written.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  EXPECT_NE(std::string::npos, written.find("question: " + movie + " exists already. Recording now replaces it")) << written;
  std::vector<Snapshot> snapshots = ReadSnapshots(labels);
  ASSERT_FALSE(snapshots.empty()) << labels;
  EXPECT_EQ("Not recorded: " + movie + " exists already, and was kept", snapshots.back().Label("status"));
  std::ifstream kept(movie);
  std::string text((std::istreambuf_iterator<char>(kept)), std::istreambuf_iterator<char>());
  EXPECT_EQ("an earlier take", text);
}

TEST_F(CaptureWindowTest, ADiskOfLessThanFiveMinutesIsShownAsAWarning) {
  Util::SmallDisk small("16m");
  if (!small.Mounted()) GTEST_SKIP() << "a small disk needs root: " << strerror(small.Error());
  StoreSettings(4, 0, 2, 16);  // PAL 2vuy: 20.9 MB a second, so 16 MB last less than a second
  std::string labels = mFolder + "/labels.txt";
  std::string shot = Artifact("capture-window-short-disk.png");
  ASSERT_EQ(0, RunWindow({"-o", small.File("take.mov"), "--labels", labels, "--screenshot-window", shot, "--quit-after", "2"}));
  std::vector<Snapshot> snapshots = ReadSnapshots(labels);
  ASSERT_FALSE(snapshots.empty()) << labels;
  const Snapshot& idle = snapshots.back();
  EXPECT_TRUE(std::regex_match(idle.Label("disk"), std::regex("Disk: \\d s left at 20\\.9 MB/s \\(WARNING: under 5 minutes\\)")))
      << idle.Label("disk");
  EXPECT_TRUE(Red(idle.Label("disk colour"))) << idle.Label("disk colour");
}

// A take of PAL at real time, clicked through: the idle line, then the status, the elapsed
// time and the frames counting up with the start timecode, then the final line.
TEST_F(CaptureWindowTest, WhileItRecordsTheLabelsCountAndStopLeavesTheFinalLine) {
  StoreSettings(4, 0, 2, 16);  // PAL 4x3, 2vuy
  std::string labels = mFolder + "/labels.txt", movie = mFolder + "/take.mov";
  std::string recordingShot = Artifact("capture-window-recording.png"), stoppedShot = Artifact("capture-window-stopped.png");
  // 75 frames take three seconds at the card's own pace however fast the machine is.
  ASSERT_EQ(0, RunWindow({"-o", movie, "--record-frames", "75", "--labels", labels, "--screenshot-recording",
                          recordingShot, "--screenshot-window", stoppedShot}));
  std::vector<Snapshot> snapshots = ReadSnapshots(labels);
  ASSERT_GE(snapshots.size(), 3u) << labels;
  EXPECT_FALSE(snapshots.front().recording);
  EXPECT_EQ("PAL 4x3 · Uncompressed 8-bit 4:2:2 · 2 ch 16-bit 48 kHz", snapshots.front().Label("settings"));

  std::set<long> frames;
  std::set<std::string> elapsed, starts;
  long last = -1;
  bool recordingToDisk = false;
  for (const Snapshot& snapshot : snapshots) {
    if (!snapshot.recording) continue;
    long count = std::stol(snapshot.Label("frames"));
    EXPECT_GE(count, last) << "frames count up";
    last = count;
    if (count > 0) frames.insert(count);
    elapsed.insert(snapshot.Label("elapsed"));
    starts.insert(snapshot.Label("start"));
    recordingToDisk = recordingToDisk || snapshot.Label("status").compare(0, 17, "Recording to disk") == 0;
    EXPECT_NE(std::string::npos, snapshot.Label("disk").find(" left at 20.9 MB/s")) << "the disk time while recording";
  }
  EXPECT_GE(frames.size(), 2u) << "the frame count changes while recording";
  EXPECT_GE(elapsed.size(), 2u) << "the elapsed time changes while recording";
  EXPECT_TRUE(recordingToDisk) << "the plug-in's status is shown";
  ASSERT_EQ(1u, starts.size()) << "one start timecode for the take";
  EXPECT_TRUE(std::regex_match(*starts.begin(), std::regex("01:\\d\\d:\\d\\d:\\d\\d"))) << *starts.begin();

  const Snapshot& stopped = snapshots.back();
  EXPECT_FALSE(stopped.recording);
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(movie));
  ASSERT_GT(summary.pictures, 0u);
  const uint64_t dropped = summary.pictureSlots - summary.pictures;
  const std::string status = stopped.Label("status");
  const std::string count = stopped.Label("frames");
  EXPECT_GE(std::stol(count), 75);
  EXPECT_EQ(0u, status.find("Recorded " + count + " frames to " + movie)) << status;
  EXPECT_EQ(std::to_string(dropped), stopped.Label("dropped")) << "the finished movie's empty slots";
  EXPECT_EQ(dropped > 0, Red(stopped.Label("dropped colour"))) << stopped.Label("dropped colour");
  EXPECT_EQ(*starts.begin(), stopped.Label("start"));
  std::smatch time;
  const std::string took = stopped.Label("elapsed");
  ASSERT_TRUE(std::regex_match(took, time, std::regex("(\\d+):(\\d\\d):(\\d\\d)"))) << took;
  EXPECT_GE(std::stol(time[1]) * 3600 + std::stol(time[2]) * 60 + std::stol(time[3]), 2)
      << "the whole seconds of 75 frames at 25 a second: " << took;
  EXPECT_FALSE(QImage(QString::fromStdString(recordingShot)).isNull()) << recordingShot;
}

// With "Verify after Stop" ticked, a take clicked through is read again once finished and
// checked against its frame hashes: the readout says it was verified, in the window's
// colours, and the run ends only once it has.
TEST_F(CaptureWindowTest, ATakeVerifiedAfterStopSaysSo) {
  StoreSettings(4, 0, 2, 16);  // PAL 4x3, 2vuy
  std::string labels = mFolder + "/labels.txt", movie = mFolder + "/verified.mov";
  std::string shot = Artifact("capture-window-verified.png");
  // 25 frames: a second at the card's own pace.
  ASSERT_EQ(0, RunWindow({"-o", movie, "--record-frames", "25", "--verify", "--labels", labels, "--screenshot-window", shot}));
  std::vector<Snapshot> snapshots = ReadSnapshots(labels);
  ASSERT_FALSE(snapshots.empty()) << labels;
  for (const Snapshot& snapshot : snapshots) {
    if (snapshot.recording) {
      EXPECT_FALSE(snapshot.Has("verify")) << "no check before the take ends";
    }
  }
  const Snapshot& stopped = snapshots.back();
  EXPECT_FALSE(stopped.recording);
  EXPECT_EQ(0u, stopped.Label("status").find("Recorded ")) << stopped.Label("status");
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(movie));
  const std::string verified = stopped.Label("verify");
  EXPECT_EQ(0u, verified.find("Verified")) << verified;
  EXPECT_NE(std::string::npos, verified.find(std::to_string(summary.pictures) + " pictures")) << verified;
  EXPECT_FALSE(Red(stopped.Label("verify colour"))) << stopped.Label("verify colour");
  EXPECT_FALSE(QImage(QString::fromStdString(shot)).isNull()) << shot;
}

// A server that writes slowly (each write held back, room for two frames) drops most of
// the card's frames however fast the machine is, and the movie shows each empty slot as
// soon as the next picture is written. The window counts them while it records and from
// the finished movie after Stop, in red.
TEST_F(CaptureWindowTest, DroppedFramesAreCountedInRed) {
  StoreSettings(4, 0, 2, 16);  // PAL 4x3, 2vuy: 829440 bytes a frame
  std::string bundle = mFolder + "/Slow.bundle";
  fs::create_directories(bundle + "/Contents/Linux");
  fs::create_directories(bundle + "/Contents/Resources");
  fs::copy_file(std::string(KESTRIN_BUNDLE) + "/Contents/Linux/KestrinCapture.so", bundle + "/Contents/Linux/KestrinCapture.so");
  fs::copy_file(std::string(KESTRIN_BUNDLE) + "/Contents/Resources/Settings.ui", bundle + "/Contents/Resources/Settings.ui");
  {
    std::ofstream script(bundle + "/Contents/Resources/QTRecordServer");
    script << "#!/bin/sh\nexec '" << KESTRIN_BUNDLE
           << "/Contents/Resources/QTRecordServer' --write-delay-ms 120 --backlog-bytes " << 2 * 829440 << "\n";
  }
  fs::permissions(bundle + "/Contents/Resources/QTRecordServer", fs::perms::owner_all);
  std::string labels = mFolder + "/labels.txt", movie = mFolder + "/dropping.mov";
  std::string shot = Artifact("capture-window-dropped.png");
  // 100 frames: four seconds at the card's own pace, four readings of the growing movie.
  ASSERT_EQ(0, RunWindow({"-o", movie, "--plugin", bundle, "--record-frames", "100", "--labels", labels,
                          "--screenshot-window", shot}));
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(movie));
  ASSERT_GT(summary.pictures, 0u);
  ASSERT_GT(summary.pictureSlots, summary.pictures) << "the slow server dropped frames";
  const uint64_t dropped = summary.pictureSlots - summary.pictures;
  std::vector<Snapshot> snapshots = ReadSnapshots(labels);
  ASSERT_FALSE(snapshots.empty()) << labels;
  bool redWhileRecording = false;
  for (const Snapshot& snapshot : snapshots) {
    if (!snapshot.Has("dropped")) continue;
    const bool some = snapshot.Label("dropped") != "0";
    EXPECT_EQ(some, Red(snapshot.Label("dropped colour"))) << snapshot.Label("dropped") << " " << snapshot.Label("dropped colour");
    redWhileRecording = redWhileRecording || (snapshot.recording && some);
  }
  EXPECT_TRUE(redWhileRecording) << "the count of a take being written";
  const Snapshot& stopped = snapshots.back();
  EXPECT_FALSE(stopped.recording);
  EXPECT_EQ(std::to_string(dropped), stopped.Label("dropped"));
  EXPECT_TRUE(Red(stopped.Label("dropped colour")));
  EXPECT_NE(std::string::npos, stopped.Label("status").find("(WARNING: " + std::to_string(dropped) + " frames dropped)"))
      << stopped.Label("status");
  EXPECT_EQ(std::to_string(summary.pictureSlots), stopped.Label("frames")) << "the movie's frames, dropped ones included";
}

// A meter's peak as its labels line says it ("peak -20.0 dBFS, hold ..."): dBFS, -inf for
// silence; NaN when it shows no level.
double MeterPeak(const std::string& text) {
  std::smatch match;
  if (!std::regex_search(text, match, std::regex("^peak (-inf|-?[0-9]+\\.[0-9]) dBFS"))) return std::nan("");
  return match[1] == "-inf" ? -std::numeric_limits<double>::infinity() : std::stod(match[1]);
}

// The lines of the event list a snapshot shows ("event N: ..."), in order.
std::vector<std::string> EventLines(const Snapshot& snapshot) {
  std::vector<std::string> lines;
  for (int row = 1; snapshot.Has("event " + std::to_string(row)); ++row) lines.push_back(snapshot.Label("event " + std::to_string(row)));
  return lines;
}

// A take whose sound goes silent for a while and whose picture goes black: the meters show
// the tone's level (-20 dBFS), then silence, then the tone again, and the event list gains
// the two events with their timecodes while the take records.
TEST_F(CaptureWindowTest, TheMetersFollowTheSoundAndTheEventsAreListed) {
  StoreSettings(4, 5, 2, 24);  // PAL 4x3, DV PAL: 144000 bytes a frame
  std::string labels = mFolder + "/labels.txt", movie = mFolder + "/faults.mov";
  std::string recordingShot = Artifact("capture-window-signal-recording.png");
  std::string stoppedShot = Artifact("capture-window-signal-stopped.png");
  // Card frames 50 to 79 silent (1.2 s), 60 to 69 black; 150 frames take six seconds at the
  // card's own pace, so both events are over well before Stop.
  ASSERT_EQ(0, RunWindow({"-o", movie, "--record-frames", "150", "--labels", labels, "--screenshot-recording",
                          recordingShot, "--screenshot-window", stoppedShot},
                         {{"VELDRAN_SIM_EVENTS", "silence@50+30,black@60+10"}}));
  std::vector<Snapshot> snapshots = ReadSnapshots(labels);
  ASSERT_FALSE(snapshots.empty()) << labels;
  EXPECT_EQ("no level", snapshots.front().Label("meter 1")) << "nothing measured before the take";
  EXPECT_EQ("no level", snapshots.front().Label("meter 2"));
  EXPECT_FALSE(snapshots.front().Has("meter 3")) << "a meter a channel";

  // The tone, silence, the tone again: each channel's meter goes through the three in order.
  for (const char* meter : {"meter 1", "meter 2"}) {
    int phase = 0;  // 0: waiting for the tone, 1: for silence, 2: for the tone again, 3: seen all
    for (const Snapshot& snapshot : snapshots) {
      if (!snapshot.recording) continue;
      const double peak = MeterPeak(snapshot.Label(meter));
      const bool tone = std::abs(peak + 20.0) <= 0.5, silent = std::isinf(peak);
      if ((phase == 0 || phase == 2) && tone) ++phase;
      if (phase == 1 && silent) ++phase;
    }
    EXPECT_EQ(3, phase) << meter << ": the tone, silence and the tone again (" << labels << ")";
  }

  const std::string black = "01:00:02:10  black for 10 frames";
  const std::string silence = "01:00:02:00  silence on channel 1 for 30 frames";
  bool listedWhileRecording = false;
  size_t rows = 0;
  for (const Snapshot& snapshot : snapshots) {
    const std::vector<std::string> lines = EventLines(snapshot);
    EXPECT_GE(lines.size(), rows) << "the list only grows during a take";
    rows = lines.size();
    if (snapshot.recording) {
      listedWhileRecording = listedWhileRecording || std::find(lines.begin(), lines.end(), black) != lines.end();
    }
  }
  EXPECT_TRUE(listedWhileRecording) << "the black stretch listed while the take records";
  const std::vector<std::string> listed = EventLines(snapshots.back());
  EXPECT_NE(listed.end(), std::find(listed.begin(), listed.end(), black)) << labels;
  EXPECT_NE(listed.end(), std::find(listed.begin(), listed.end(), silence)) << labels;
  EXPECT_NE(listed.end(), std::find(listed.begin(), listed.end(), "01:00:02:00  silence on channel 2 for 30 frames"))
      << labels;
  EXPECT_FALSE(QImage(QString::fromStdString(recordingShot)).isNull()) << recordingShot;
  EXPECT_FALSE(QImage(QString::fromStdString(stoppedShot)).isNull()) << stoppedShot;
}

// A clipped stretch of the first channel turns its meter red at full scale, for as long as
// its hold lasts, and the clipping is listed; the second channel's meter stays as it was.
TEST_F(CaptureWindowTest, AClippedStretchTurnsItsMeterRedForAWhile) {
  StoreSettings(4, 5, 2, 24);  // PAL 4x3, DV PAL
  std::string labels = mFolder + "/labels.txt", movie = mFolder + "/clipped.mov";
  std::string shot = Artifact("capture-window-signal-clipped.png");
  // Card frames 50 to 59 of channel 1 clipped (0.4 s); 150 frames take six seconds, so the
  // red has gone again (two seconds after the last full-scale peak) well before Stop.
  ASSERT_EQ(0, RunWindow({"-o", movie, "--record-frames", "150", "--labels", labels, "--screenshot-window", shot},
                         {{"VELDRAN_SIM_EVENTS", "clip@50+10"}}));
  std::vector<Snapshot> snapshots = ReadSnapshots(labels);
  ASSERT_FALSE(snapshots.empty()) << labels;
  int phase = 0;  // 0: waiting for full scale, 1: for it to end, 2: seen both
  for (const Snapshot& snapshot : snapshots) {
    if (!snapshot.recording) continue;
    EXPECT_EQ(std::string::npos, snapshot.Label("meter 2").find("full scale")) << snapshot.Label("meter 2");
    const std::string text = snapshot.Label("meter 1");
    const bool red = text.find(", full scale") != std::string::npos;
    if (phase == 0 && red) {
      EXPECT_NE(std::string::npos, text.find("hold 0.0 dBFS")) << "the clipped peak held: " << text;
      ++phase;
    } else if (phase == 1 && !red && std::abs(MeterPeak(text) + 20.0) <= 0.5) {
      ++phase;
    }
  }
  EXPECT_EQ(2, phase) << "meter 1: red at full scale, then the tone without red (" << labels << ")";
  const std::vector<std::string> listed = EventLines(snapshots.back());
  EXPECT_EQ(std::vector<std::string>{"01:00:02:00  clipping on channel 1 for 10 frames"}, listed) << labels;
  EXPECT_FALSE(QImage(QString::fromStdString(shot)).isNull()) << shot;
}

}  // namespace
}  // namespace KTN
