// Tests of the record module driven through RecEntry in this process, with the host program's
// memory functions and suites, the real recording server and the simulated card.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Capture/Previewer.h"
#include "Core/SharedMemory.h"
#include "Host/PluginHost.h"
#include "IPC/QTRecordClient.h"
#include "Movie/MovieLock.h"
#include "Movie/MovieSidecars.h"
#include "Movie/MovieSummary.h"
#include "Movie/TimecodeTrack.h"
#include "Record/CapPriv.h"
#include "Record/FakeDeviceFrames.h"
#include "Record/RecordHandlers.h"
#include "Record/RecordPlatform.h"
#include "Testing/MovieProbe.h"
#include "Settings/CaptureTables.h"
#include "Signal/SignalEvent.h"
#include "Simulator/SimulatedCardLoader.h"
#include "Util/CapturedStderr.h"
#include "Util/ScratchFolder.h"
#include "Util/FourCC.h"

namespace KTN {
namespace {

namespace fs = std::filesystem;
using Util::CapturedStderr;
using Util::FourCC;

struct StatusLog {
  std::vector<std::string> texts;
  std::vector<int64_t> counts;
  int nullCalls = 0;
};
StatusLog sStatus;

int32_t RecordStatus(int64_t, const char* text, int64_t count) {
  if (!text) {
    ++sStatus.nullCalls;
    return 0;
  }
  sStatus.texts.push_back(text);
  sStatus.counts.push_back(count);
  return 0;
}

int32_t NoPreroll(int64_t) { return 0; }

// The host program's timecode callback: without a deck it has no timecode and answers frame 0.
int32_t HostWithoutDeck(int64_t, int32_t* frameNumber, int32_t*, int32_t*) {
  *frameNumber = 0;
  return 0;
}

// A host whose deck stands at 01:00:00:00 (at 25 frames a second).
int32_t HostAtOneHour(int64_t, int32_t* frameNumber, int32_t*, int32_t*) {
  *frameNumber = 3600 * 25;
  return 0;
}

// How often needle occurs in text.
size_t Occurrences(const std::string& text, const std::string& needle) {
  size_t count = 0;
  for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++count;
  return count;
}

std::string FileText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Waits until done() holds, for at most 30 seconds (a bound far beyond what it takes even
// under a sanitizer); whether it came.
template <typename Condition>
bool WaitFor(Condition done) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!done()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

struct FormatReport {
  int calls = 0;
  int32_t width = 0, height = 0, parX = 0, parY = 0;
  TimeRecord time = {};
};
FormatReport sReport;

int32_t ReportFormat(int64_t, int32_t parX, int32_t parY, int32_t width, int32_t height, int32_t, TimeRecord time) {
  ++sReport.calls;
  sReport.parX = parX, sReport.parY = parY, sReport.width = width, sReport.height = height, sReport.time = time;
  return 0;
}

// A signed settings record of a standard row and format row.
CaptureSettings Settings(int standard, int format, int channels = 2, int bits = 16) {
  return SignedCaptureSettings(standard, format, channels, bits, 48000);
}

class RecordModuleTest : public testing::Test {
 protected:
  void SetUp() override {
    mHost.UseEntryPoint(RecEntry);
    SetRecordServerPathForTesting(QT_RECORD_SERVER);
    mScratch.reset(new Util::ScratchFolder);
    mFolder = mScratch->Path();
    sStatus = StatusLog();
    sReport = FormatReport();
  }
  void TearDown() override { mScratch.reset(); }

  void UseCard(std::initializer_list<SimulatedCardSetting> settings = {}) { UseSimulatedCard(SIMULATED_CARD_BUNDLE, settings); }

  // Opens an instance with a copy of blob (or none); returns it (possibly half-built).
  CapPriv* Open(const void* blob, int32_t* result = nullptr, FormatReportFunc report = nullptr) {
    recOpenParms parms = {};
    parms.callbackID = 42;
    void* copy = nullptr;
    if (blob) {
      copy = mHost.StdParms()->funcs->memoryFuncs->allocate(sizeof(CaptureSettings));
      memcpy(copy, blob, sizeof(CaptureSettings));
    }
    parms.settings = copy;
    parms.formatReport = report;
    void* instance = nullptr;
    int32_t rc = mHost.Call(recmod_Open, &instance, reinterpret_cast<intptr_t>(&parms));
    if (result) *result = rc;
    if (copy) mHost.StdParms()->funcs->memoryFuncs->dispose(copy);
    return static_cast<CapPriv*>(instance);
  }

  recCapParmsRec8 Parms(const std::string& movie, int32_t frames = 0x7FFFFFFF) {
    recCapParmsRec8 parms;
    memset(&parms, 0, sizeof parms);
    parms.videoEnabled = 1;
    parms.audioEnabled = 1;
    for (size_t i = 0; i < movie.size(); ++i) parms.path[i] = static_cast<uint16_t>(movie[i]);
    parms.statusFunc = RecordStatus;
    parms.prerollFunc = NoPreroll;
    parms.frameCount = frames;
    parms.timecodeRate = 25;
    parms.reportDroppedFrames = 1;
    return parms;
  }

  // The parameters of a recording of frames frames from the in-point 01:00:00:05 at 25.
  recCapParmsRec8 InPointParms(const std::string& movie, int32_t frames) {
    recCapParmsRec8 parms = Parms(movie, frames);
    parms.timecodeRate = 25;
    parms.startFrameCount = 3600 * 25 + 5;  // 01:00:00:05 at 25
    return parms;
  }

  int32_t Prep(CapPriv* instance, recCapParmsRec8& parms) {
    return mHost.Call(recmod_PrepRecord8, instance, reinterpret_cast<intptr_t>(&parms));
  }
  int32_t Start(CapPriv* instance) {
    recStartReply reply = {};
    return mHost.Call(recmod_StartRecord, instance, reinterpret_cast<intptr_t>(&reply));
  }
  int32_t Close(CapPriv* instance) { return mHost.Call(recmod_Close, instance, 0); }

  PluginHost mHost;
  std::unique_ptr<Util::ScratchFolder> mScratch;
  std::string mFolder;
};

// ---- Selectors without an instance ----

TEST_F(RecordModuleTest, UnhandledSelectorsReturn1AndTheHarmlessOnesReturn0) {
  for (int32_t selector : {0, 4, 9, 10, 16, 17, 18, 20, 21, 22, 23, 24, 25, 27, 29, 30, 1000, -1}) {
    EXPECT_EQ(rmUnsupported, mHost.Call(selector, nullptr, 0)) << selector;
  }
  uint8_t untouched[64];
  memset(untouched, 0xAB, sizeof untouched);
  for (int32_t selector : {1, 14}) {
    EXPECT_EQ(rmNoErr, mHost.Call(selector, untouched, reinterpret_cast<intptr_t>(untouched))) << selector;
  }
  for (uint8_t byte : untouched) ASSERT_EQ(0xAB, byte);
}

TEST_F(RecordModuleTest, AudioFormatIsOne48kHzFormat) {
  recAudioInfoRec info;
  memset(&info, 0x5A, sizeof info);
  long before = PluginHost::OutstandingBlocks();
  EXPECT_EQ(rmNoErr, mHost.Call(recmod_GetAudioIndFormat, &info, 0));
  EXPECT_EQ(FourCC("RAW "), info.subtype);
  ASSERT_NE(nullptr, info.formatBuffer);
  EXPECT_EQ(8u, static_cast<uint32_t*>(info.formatBuffer)[0]);
  EXPECT_EQ(48000u, static_cast<uint32_t*>(info.formatBuffer)[1]);
  EXPECT_EQ(before + 1, PluginHost::OutstandingBlocks()) << "allocated through the host";
  mHost.StdParms()->funcs->memoryFuncs->dispose(info.formatBuffer);
}

TEST_F(RecordModuleTest, AudioFormatIndexOneIsTheEndWithoutTouchingTheRecord) {
  recAudioInfoRec info;
  memset(&info, 0x5A, sizeof info);
  recAudioInfoRec before = info;
  EXPECT_EQ(rmNoMoreFormats, mHost.Call(recmod_GetAudioIndFormat, &info, 1));
  EXPECT_EQ(0, memcmp(&before, &info, sizeof info));
}

void* NoMemory(uint32_t) { return nullptr; }

TEST_F(RecordModuleTest, AudioFormatWithoutMemoryIs6) {
  recMemoryFuncs memory = *mHost.StdParms()->funcs->memoryFuncs;
  memory.allocate = NoMemory;
  recFuncs funcs = *mHost.StdParms()->funcs;
  funcs.memoryFuncs = &memory;
  rmStdParms parms = *mHost.StdParms();
  parms.funcs = &funcs;
  recAudioInfoRec info = {};
  CapturedStderr captured;
  EXPECT_EQ(rmOutOfMemory, RecEntry(recmod_GetAudioIndFormat, &parms, &info, 0));
  EXPECT_EQ("*** recGetAudioIndFormat[#]: Failed to allocate 8 byte audio format buffer\n", captured.Text());
}

TEST_F(RecordModuleTest, SetupInfoAndModuleInformation) {
  recSetupInfo setup;
  memset(&setup, 0, sizeof setup);
  EXPECT_EQ(rmNoErr, mHost.Call(recmod_GetSetupInfo, nullptr, reinterpret_cast<intptr_t>(&setup)));
  EXPECT_EQ(1u, setup.word0);
  EXPECT_EQ(1u, setup.word4);
  EXPECT_EQ(0, memcmp("Settings\xC9", setup.buttonLabel, 10));
  recModuleInfo info;
  memset(&info, 0xEE, sizeof info);  // so that a field left unwritten shows
  EXPECT_EQ(rmNoErr, mHost.Call(recmod_Startup, &info, 0));
  // Read at the byte offsets of the host's record, whatever the struct's field names say.
  const uint8_t* bytes = reinterpret_cast<const uint8_t*>(&info);
  auto word = [bytes](size_t offset) {
    uint32_t value;
    memcpy(&value, bytes + offset, sizeof value);
    return value;
  };
  auto half = [bytes](size_t offset) {
    uint16_t value;
    memcpy(&value, bytes + offset, sizeof value);
    return value;
  };
  struct {
    size_t offset;
    uint32_t value;
  } const words[] = {
      {4, FourCC("MooV")}, {8, FourCC("KTNW")},
      {12, 1}, {16, 1}, {20, 0}, {24, 0}, {28, 1}, {32, 0}, {36, 0}, {40, 0}, {44, 0},
      {48, 1}, {52, 0}, {56, 1}, {60, 0}, {64, 1}, {68, 1}, {72, 10}, {76, 0},
      {144, 1}, {156, 0}, {160, 0}, {164, 2048}, {168, 1556}, {176, 640}, {180, 480},
      {696, 0}, {700, 0}, {704, 0},
  };
  for (const auto& expected : words) EXPECT_EQ(expected.value, word(expected.offset)) << "offset " << expected.offset;
  EXPECT_EQ(1000, half(172)) << "aspect numerator";
  EXPECT_EQ(1000, half(174)) << "aspect denominator";
  // The display name: 256 UTF-16 units at 184, the rest zero.
  const char name[] = "Kestrin Capture";
  for (size_t unit = 0; unit < 256; ++unit) {
    uint16_t expected = unit < sizeof name - 1 ? static_cast<uint8_t>(name[unit]) : 0;
    EXPECT_EQ(expected, half(184 + 2 * unit)) << "display name unit " << unit;
  }
  // The class identifier: 36 characters of a text GUID and a NUL, at 708.
  std::string classID(reinterpret_cast<const char*>(bytes + 708), 36);
  EXPECT_TRUE(std::regex_match(classID, std::regex("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}")))
      << classID;
  EXPECT_EQ(0, bytes[708 + 36]);
}

// ---- Open and close ----

TEST_F(RecordModuleTest, OpenWithNoCardReturns5AndLeavesTheInstance) {
  UseCard({{"VELDRAN_SIM_DEVICES", "0"}});
  int32_t rc = 0;
  long blocks = PluginHost::OutstandingBlocks();
  CapPriv* instance = Open(nullptr, &rc);
  EXPECT_EQ(rmNoCaptureDevice, rc);
  ASSERT_NE(nullptr, instance);
  EXPECT_EQ(kCapPrivMagic, instance->magic);
  EXPECT_EQ(nullptr, instance->apiCapture);
  EXPECT_EQ(rmBadParameter, mHost.Call(recmod_SetActive, instance, 1)) << "later selectors refuse it";
  EXPECT_EQ(rmNoErr, Close(instance));
  EXPECT_EQ(blocks, PluginHost::OutstandingBlocks());
}

TEST_F(RecordModuleTest, CloseOfAnInstanceWithoutMagicFreesNothing) {
  void* block = mHost.StdParms()->funcs->memoryFuncs->allocate(sizeof(CapPriv));
  memset(block, 0, sizeof(CapPriv));
  long blocks = PluginHost::OutstandingBlocks();
  EXPECT_EQ(rmNoErr, Close(static_cast<CapPriv*>(block)));
  EXPECT_EQ(blocks, PluginHost::OutstandingBlocks());
  mHost.StdParms()->funcs->memoryFuncs->dispose(block);
}

TEST_F(RecordModuleTest, OpenAndCloseLeaveNothingBehind) {
  UseCard();
  long blocks = PluginHost::OutstandingBlocks();
  CapPriv* instance = Open(nullptr);
  ASSERT_NE(nullptr, instance);
  EXPECT_NE(nullptr, instance->recordClient);
  EXPECT_NE(nullptr, instance->errorSuite);
  EXPECT_EQ(1, PluginHost::OutstandingSuites());
  EXPECT_EQ(static_cast<uint32_t>(FourCC("appl")), gSupportedPixelFormats[12].codecVendor)
      << "vendor-less formats take the server's vendor";
  EXPECT_EQ(rmNoErr, Close(instance));
  EXPECT_EQ(blocks, PluginHost::OutstandingBlocks());
  EXPECT_EQ(0, PluginHost::OutstandingSuites());
}

TEST_F(RecordModuleTest, BlobOfVersion2IsIgnoredAtOpenAndReplacedInShowOptions) {
  UseCard();
  CaptureSettings blob = Settings(13, 3);
  blob.version = 2;
  CapPriv* instance = Open(&blob);
  ASSERT_NE(nullptr, instance);
  CaptureSettings defaults = {};
  defaults.SetDefaults();
  EXPECT_EQ(0, memcmp(&defaults, &instance->settings, sizeof defaults)) << "the defaults are used";
  recSetupParms parms = {};
  void* old = mHost.StdParms()->suites->memoryFuncs->allocate(sizeof blob);
  memcpy(old, &blob, sizeof blob);
  parms.settings = old;
  long blocks = PluginHost::OutstandingBlocks();
  CapturedStderr captured;
  EXPECT_EQ(rmNoErr, mHost.Call(recmod_ShowOptions, instance, reinterpret_cast<intptr_t>(&parms)));
  EXPECT_EQ("*** recShowOptions[#]: Failed to create a Settings dialog\n", captured.Text());
  void* replaced = parms.settings;  // a packed member: read it out, never bind to it
  ASSERT_NE(nullptr, replaced);
  EXPECT_EQ(0, memcmp(&instance->settings, replaced, sizeof blob)) << "a fresh copy of the instance's settings";
  EXPECT_EQ(blocks, PluginHost::OutstandingBlocks()) << "the old blob was freed, a new one allocated";
  mHost.StdParms()->suites->memoryFuncs->dispose(replaced);
  Close(instance);
}

// With the flags word set, an open instance's options are left alone: no blob is made for
// the host, no dialog is asked for, and the instance keeps its settings.
TEST_F(RecordModuleTest, ShowOptionsWithFlagsSetDoesNothing) {
  UseCard();
  CaptureSettings blob = Settings(13, 3);
  CapPriv* instance = Open(&blob);
  ASSERT_NE(nullptr, instance);
  CaptureSettings before = instance->settings;
  recSetupParms parms = {};
  parms.flags = 1;
  long blocks = PluginHost::OutstandingBlocks();
  CapturedStderr captured;
  EXPECT_EQ(rmNoErr, mHost.Call(recmod_ShowOptions, instance, reinterpret_cast<intptr_t>(&parms)));
  EXPECT_EQ("", captured.Text()) << "no dialog was asked for";
  void* kept = parms.settings;  // a packed member: read it out, never bind to it
  EXPECT_EQ(nullptr, kept) << "no blob was made";
  EXPECT_EQ(blocks, PluginHost::OutstandingBlocks());
  EXPECT_EQ(0, memcmp(&before, &instance->settings, sizeof before));
  Close(instance);
}

TEST_F(RecordModuleTest, FormatReportOnlyWithARate) {
  UseCard();
  CaptureSettings blob = Settings(4, 0);  // PAL 4x3
  CapPriv* instance = Open(&blob, nullptr, ReportFormat);
  EXPECT_EQ(1, sReport.calls);
  EXPECT_EQ(1440, sReport.width) << "twice the width, deliberately";
  EXPECT_EQ(1152, sReport.height);
  EXPECT_EQ(768, sReport.parX);
  EXPECT_EQ(25, sReport.time.scale);
  EXPECT_EQ(1, sReport.time.sampleSize);
  Close(instance);
  blob.timeScale = 0;
  instance = Open(&blob, nullptr, ReportFormat);
  EXPECT_EQ(1, sReport.calls) << "no call without a time scale";
  Close(instance);
  blob = Settings(4, 0);
  blob.frameDuration = 0;
  instance = Open(&blob, nullptr, ReportFormat);
  EXPECT_EQ(1, sReport.calls) << "no call without a frame duration";
  Close(instance);
}

TEST_F(RecordModuleTest, DeactivateThenActivateMakesANewPreviewer) {
  UseCard();
  CaptureSettings blob = Settings(4, 0);
  CapPriv* instance = Open(&blob);
  ASSERT_EQ(rmNoErr, mHost.Call(recmod_SetActive, instance, 1));
  Previewer* first = instance->previewer;
  ASSERT_NE(nullptr, first);
  EXPECT_EQ(first, Previewer::sCurrent.load()) << "registered with the card";
  first->AddRef();  // keep it to tell it from its successor
  EXPECT_EQ(rmNoErr, mHost.Call(recmod_SetActive, instance, 1)) << "activating again does nothing";
  ASSERT_EQ(rmNoErr, mHost.Call(recmod_SetActive, instance, 0));
  EXPECT_EQ(nullptr, instance->previewer);
  EXPECT_EQ(nullptr, Previewer::sCurrent.load());
  ASSERT_EQ(rmNoErr, mHost.Call(recmod_SetActive, instance, 1));
  EXPECT_NE(nullptr, instance->previewer);
  EXPECT_NE(first, instance->previewer);
  first->Release();
  ASSERT_EQ(rmNoErr, mHost.Call(recmod_SetActive, instance, 0));
  Close(instance);
}

// ---- Preparing a recording ----

TEST_F(RecordModuleTest, FrameLimitsAndTheirDoublingAbove30Frames) {
  UseCard();
  CaptureSettings blob = Settings(8, 0);  // HD 720p 59.94
  CapPriv* instance = Open(&blob);
  recCapParmsRec8 parms = Parms(mFolder + "/limit.mov", 0x7FFFFFFF);
  ASSERT_EQ(rmNoErr, Prep(instance, parms));
  EXPECT_EQ(0, instance->frameLimit) << "0x7FFFFFFF means no limit";
  parms.frameCount = 10;
  ASSERT_EQ(rmNoErr, Prep(instance, parms));
  EXPECT_EQ(20, instance->frameLimit) << "10 at 59.94 frames per second are 20 callbacks";
  EXPECT_TRUE(fs::exists(mFolder + "/limit.mov"));
  Close(instance);
}

TEST_F(RecordModuleTest, PrepareRefusesAnInstanceWithoutServerAndAPathItCannotCreate) {
  CapturedStderr captured;
  recCapParmsRec8 parms = Parms(mFolder + "/x.mov");
  EXPECT_EQ(rmBadParameter, Prep(nullptr, parms));
  EXPECT_NE(std::string::npos, captured.Text().find("Invalid capPtr (nil) or uninitialised record client"));
  UseCard();
  CapPriv* instance = Open(nullptr);
  parms = Parms(mFolder + "/no such folder/x.mov");
  CapturedStderr again;
  EXPECT_EQ(rmBadParameter, Prep(instance, parms));
  EXPECT_NE(std::string::npos, again.Text().find("Failed to create file"));
  Close(instance);
}

// Selector 5 with nothing prepared has no in-point to count the deck's timecode at: it is
// refused, and nothing starts.
TEST_F(RecordModuleTest, AStartWithoutAPreparedRecordingIsRefused) {
  UseCard({{"VELDRAN_SIM_DECK", "1"}});  // a deck ready: the start asks the host's timecode
  CapPriv* instance = Open(nullptr);
  ASSERT_NE(nullptr, instance);
  CapturedStderr captured;
  EXPECT_EQ(rmBadParameter, Start(instance));
  EXPECT_NE(std::string::npos, captured.Text().find("*** recStartRecord[#]: Invalid capPtr 0x")) << "said";
  EXPECT_FALSE(instance->recording);
  // Nor after a preparation that failed.
  recCapParmsRec8 parms = Parms(mFolder + "/no such folder/x.mov");
  CapturedStderr again;
  EXPECT_EQ(rmBadParameter, Prep(instance, parms));
  EXPECT_EQ(rmBadParameter, Start(instance));
  EXPECT_NE(std::string::npos, again.Text().find("or no prepared recording"));
  EXPECT_FALSE(instance->recording);
  Close(instance);
}

// The movie is made without waiting for anything, and only as a regular file: a FIFO (with
// a reader or without) and a device are refused and left as they are.
TEST_F(RecordModuleTest, PrepareRefusesWhatIsNotARegularFileWithoutWaiting) {
  UseCard();
  CapPriv* instance = Open(nullptr);
  ASSERT_NE(nullptr, instance);
  const std::string fifo = mFolder + "/pipe.mov";
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_LE(0, reader);
  recCapParmsRec8 parms = Parms(fifo);
  CapturedStderr captured;
  EXPECT_EQ(rmBadParameter, Prep(instance, parms)) << "a FIFO somebody reads";
  EXPECT_NE(std::string::npos, captured.Text().find("The movie " + fifo + " is a FIFO, not a regular file: refused"));
  close(reader);
  CapturedStderr unread;
  EXPECT_EQ(rmBadParameter, Prep(instance, parms)) << "a FIFO nobody reads, at once";
  unread.Text();
  parms = Parms("/dev/null");
  CapturedStderr device;
  EXPECT_EQ(rmBadParameter, Prep(instance, parms));
  EXPECT_NE(std::string::npos, device.Text().find("The movie /dev/null is a character device, not a regular file: refused"));
  struct stat info;
  ASSERT_EQ(0, stat("/dev/null", &info));
  EXPECT_TRUE(S_ISCHR(info.st_mode));
  ASSERT_EQ(0, stat(fifo.c_str(), &info));
  EXPECT_TRUE(S_ISFIFO(info.st_mode));
  Close(instance);
}

// A movie that another process is writing (it holds the movie's lock) is neither emptied nor
// taken: the file cannot be made for the take (22), and the line before says who writes it.
// Once let go, it is made anew.
TEST_F(RecordModuleTest, PrepareLeavesAMovieAnotherWriterHoldsAsItIs) {
  UseCard();
  CapPriv* instance = Open(nullptr);
  ASSERT_NE(nullptr, instance);
  const std::string movie = mFolder + "/taken.mov";
  { std::ofstream(movie) << "somebody's take"; }
  int writer = open(movie.c_str(), O_RDWR | O_CLOEXEC);  // another open of the file: another writer
  ASSERT_LE(0, writer);
  ASSERT_EQ(0, MovieLock::TryLock(writer));
  recCapParmsRec8 parms = Parms(movie);
  CapturedStderr captured;
  EXPECT_EQ(rmBadParameter, Prep(instance, parms));
  const std::string said = captured.Text();
  EXPECT_NE(std::string::npos, said.find(movie + " is being written by process " + std::to_string(getpid()) + " (RecordTest)"))
      << said;
  EXPECT_NE(std::string::npos, said.find("Failed to create file")) << said;
  EXPECT_EQ("somebody's take", FileText(movie));
  EXPECT_EQ(rmBadParameter, Start(instance)) << "nothing was prepared";
  close(writer);
  ASSERT_EQ(rmNoErr, Prep(instance, parms));
  EXPECT_EQ(std::string::npos, FileText(movie).find("somebody's take"));
  Close(instance);
}

// A preparation the server refuses leaves no file behind: neither the one it made nor the
// one it emptied.
TEST_F(RecordModuleTest, APreparationTheServerRefusesLeavesNoMovieBehind) {
  UseCard();
  CapPriv* instance = Open(nullptr);
  ASSERT_NE(nullptr, instance);
  instance->settings.codecType = FourCC("zzzz");  // not a codec the server writes: Prepare refuses
  const std::string made = mFolder + "/made.mov";
  recCapParmsRec8 parms = Parms(made);
  CapturedStderr captured;
  EXPECT_EQ(22, Prep(instance, parms));
  const std::string emptied = mFolder + "/emptied.mov";
  { std::ofstream(emptied) << "an older take"; }
  parms = Parms(emptied);
  EXPECT_EQ(22, Prep(instance, parms));
  EXPECT_NE(std::string::npos, captured.Text().find("Prepare returned 22"));
  EXPECT_FALSE(fs::exists(made));
  EXPECT_FALSE(fs::exists(emptied));
  Close(instance);
}

// ---- The device thread's callback, driven directly ----

class CallbackTest : public RecordModuleTest {
 protected:
  void SetUp() override {
    RecordModuleTest::SetUp();
    UseCard();
    CaptureSettings blob = Settings(4, 0);  // PAL, 2vuy, stereo 16-bit
    mInstance = Open(&blob);
    ASSERT_NE(nullptr, mInstance);
  }
  void TearDown() override {
    Close(mInstance);
    RecordModuleTest::TearDown();
  }
  // Entries of a queue: for video, one a frame slot, with or without its picture.
  size_t Queued(bool video) { return video ? mInstance->videoQueue->size() : mInstance->audioQueue->size(); }
  // Pictures the video queue holds.
  size_t QueuedPictures() {
    size_t pictures = 0;
    for (IVeldranVideoInputFrame* frame : *mInstance->videoQueue) pictures += frame != nullptr;
    return pictures;
  }
  // A recording to movie with the same frame queued twice, whose server is then killed;
  // frame receives the caller's reference to it.
  void QueueTwiceAndKillTheServer(const std::string& movie, FakeVideoInputFrame*& frame) {
    recCapParmsRec8 parms = Parms(mFolder + "/" + movie);
    ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
    ASSERT_EQ(rmNoErr, Start(mInstance));
    frame = new FakeVideoInputFrame(720, 576, 0x80);
    FrameArrivedCallback(mInstance, frame, nullptr);
    FrameArrivedCallback(mInstance, frame, nullptr);
    ASSERT_EQ(0, kill(mInstance->recordClient->ServerPid(), SIGKILL));
  }
  CapPriv* mInstance = nullptr;
};

TEST_F(CallbackTest, VideoOnlyAndAudioOnlyCallbacksEachCountOne) {
  recCapParmsRec8 parms = Parms(mFolder + "/count.mov");
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  FakeVideoInputFrame* frame = new FakeVideoInputFrame(720, 576, 0x80);
  FakeAudioPacket* packet = new FakeAudioPacket(1920, 2, 2);
  FrameArrivedCallback(mInstance, frame, nullptr);
  FrameArrivedCallback(mInstance, nullptr, packet);
  EXPECT_EQ(2, mInstance->frameCount);
  EXPECT_EQ(1u, Queued(true)) << "one frame slot: the sound alone drops no picture";
  EXPECT_EQ(1u, QueuedPictures());
  EXPECT_EQ(1u, Queued(false));
  EXPECT_EQ(2, frame->References()) << "the queue holds a reference";
  flush(mInstance);
  EXPECT_EQ(1, frame->References());
  frame->Release();
  packet->Release();
}

TEST_F(CallbackTest, NothingIsQueuedWhileNotRecording) {
  FakeVideoInputFrame* frame = new FakeVideoInputFrame(720, 576, 0x80);
  FrameArrivedCallback(mInstance, frame, nullptr);
  EXPECT_EQ(0, mInstance->frameCount);
  EXPECT_EQ(1, frame->References());
  frame->Release();
  CapturedStderr captured;
  FrameArrivedCallback(nullptr, frame, nullptr);
  EXPECT_EQ("*** FrameArrivedCallback[#]: Invalid capPtr (nil) or uninitialised apiCapture or recordClient\n",
            captured.Text());
}

TEST_F(CallbackTest, WithAStartTimecodeEarlierFramesAndEarlierSoundAreDropped) {
  recCapParmsRec8 parms = InPointParms(mFolder + "/in.mov", 50);
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  EXPECT_EQ(0x01000005u, mInstance->inPointBCD);
  ASSERT_EQ(rmNoErr, Start(mInstance));
  std::vector<FakeVideoInputFrame*> frames;
  for (int f = 3; f <= 6; ++f) frames.push_back(new FakeVideoInputFrame(720, 576, 0x80, true, 1, 0, 0, f));
  FakeAudioPacket* early = new FakeAudioPacket(1920, 2, 2);
  FrameArrivedCallback(mInstance, nullptr, early);  // sound before the start
  FrameArrivedCallback(mInstance, frames[0], early);  // 01:00:00:03
  FrameArrivedCallback(mInstance, frames[1], early);  // 01:00:00:04
  EXPECT_EQ(0, mInstance->frameCount);
  EXPECT_FALSE(mInstance->started);
  FrameArrivedCallback(mInstance, frames[2], early);  // 01:00:00:05: the in-point
  FrameArrivedCallback(mInstance, frames[3], early);
  EXPECT_TRUE(mInstance->started);
  EXPECT_EQ(2, mInstance->frameCount);
  EXPECT_EQ(2u, Queued(true));
  EXPECT_EQ(2u, Queued(false));
  EXPECT_TRUE(mInstance->startEvent.mSignalled);
  EXPECT_EQ(1, frames[0]->References()) << "dropped frames keep no reference";
  flush(mInstance);
  for (FakeVideoInputFrame* frame : frames) frame->Release();
  early->Release();
}

// While an in-point recording waits, its reports say what for and where the signal is, or
// that the signal has passed it; one that starts at once for want of timecode says so.
TEST_F(CallbackTest, AnInPointRecordingReportsWhatItWaitsFor) {
  recCapParmsRec8 parms = InPointParms(mFolder + "/waiting.mov", 50);
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  EXPECT_EQ(rmNoErr, recServiceRecord(mInstance));
  EXPECT_EQ("Waiting for 01:00:00:05", sStatus.texts.back()) << "no frame seen yet";
  FakeVideoInputFrame* early = new FakeVideoInputFrame(720, 576, 0x80, true, 1, 0, 0, 3);
  FrameArrivedCallback(mInstance, early, nullptr);
  EXPECT_EQ(rmNoErr, recServiceRecord(mInstance));
  EXPECT_EQ("Waiting for 01:00:00:05 (signal at 01:00:00:03)", sStatus.texts.back());
  EXPECT_EQ(0, sStatus.counts.back());
  FakeVideoInputFrame* late = new FakeVideoInputFrame(720, 576, 0x80, true, 1, 0, 0, 9);
  FrameArrivedCallback(mInstance, late, nullptr);
  EXPECT_EQ(rmNoErr, recServiceRecord(mInstance));
  EXPECT_EQ("Waiting for 01:00:00:05: the signal has passed it (signal at 01:00:00:09)", sStatus.texts.back());
  EXPECT_FALSE(mInstance->started);
  recStopRecord(mInstance);
  early->Release();
  late->Release();

  // The same in-point, a signal without timecode and no deck: the recording starts at once,
  // and the first report after the start is preceded by a note that says so.
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  FakeVideoInputFrame* plain = new FakeVideoInputFrame(720, 576, 0x80);
  FrameArrivedCallback(mInstance, plain, nullptr);
  EXPECT_TRUE(mInstance->started);
  EXPECT_EQ(rmNoErr, recServiceRecord(mInstance));
  ASSERT_GE(sStatus.texts.size(), 2u);
  EXPECT_EQ("The signal carries no timecode: recorded from its first frame, not from 01:00:00:05",
            sStatus.texts[sStatus.texts.size() - 2]);
  EXPECT_EQ(1, sStatus.counts[sStatus.counts.size() - 2]);
  EXPECT_EQ("Recording to disk", sStatus.texts.back());
  EXPECT_EQ(1, sStatus.counts.back());
  recStopRecord(mInstance);
  plain->Release();
}

// Once a take has started, every report is exactly "Recording to disk" or the dropped-frames
// warning, which hosts match as whole texts; an in-point take that started without timecode
// says so once, just before the first report after its start, in words of its own.
TEST_F(CallbackTest, AfterTheStartEveryReportIsOneOfTheTwoTextsBesidesOneNote) {
  const std::set<std::string> recording = {"Recording to disk", "Recording to disk (WARNING: Dropped frames detected)"};
  const std::string note = "The signal carries no timecode: recorded from its first frame, not from 01:00:00:05";
  for (bool timecode : {false, true}) {
    SCOPED_TRACE(timecode ? "a signal with timecode" : "a signal without timecode");
    recCapParmsRec8 parms = InPointParms(mFolder + (timecode ? "/timed.mov" : "/untimed.mov"), 50);
    ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
    ASSERT_EQ(rmNoErr, Start(mInstance));
    EXPECT_EQ(rmNoErr, recServiceRecord(mInstance));
    EXPECT_EQ("Waiting for 01:00:00:05", sStatus.texts.back()) << "before the start, the wait is told";
    const size_t beforeStart = sStatus.texts.size();
    std::vector<FakeVideoInputFrame*> frames;
    for (int f = 5; f < 9; ++f) {
      frames.push_back(timecode ? new FakeVideoInputFrame(720, 576, 0x80, true, 1, 0, 0, f)
                                : new FakeVideoInputFrame(720, 576, 0x80));
      FrameArrivedCallback(mInstance, frames.back(), nullptr);
      EXPECT_TRUE(mInstance->started);
      EXPECT_EQ(rmNoErr, recServiceRecord(mInstance));
      if (f == 6) FrameArrivedCallback(mInstance, nullptr, nullptr);  // a slot whose picture the card dropped
    }
    EXPECT_EQ(rmNoErr, recServiceRecord(mInstance));
    EXPECT_EQ(rmNoErr, recStopRecord(mInstance));
    const std::vector<std::string> reports(sStatus.texts.begin() + static_cast<long>(beforeStart), sStatus.texts.end());
    ASSERT_EQ(timecode ? 5u : 6u, reports.size());
    size_t notes = 0;
    for (size_t i = 0; i < reports.size(); ++i) {
      if (!timecode && i == 0 && reports[i] == note) {
        ++notes;
        continue;
      }
      EXPECT_EQ(1u, recording.count(reports[i])) << "report " << i << ": " << reports[i];
    }
    EXPECT_EQ(timecode ? 0u : 1u, notes) << "the note, once, first";
    EXPECT_EQ("Recording to disk (WARNING: Dropped frames detected)", reports.back()) << "the warning too is exact";
    EXPECT_EQ(1u, recording.count(reports[1]));
    for (FakeVideoInputFrame* frame : frames) frame->Release();
  }
}

// A take without timecode that drops a frame and reaches its frame limit at its first report
// after the start ends on the warning: the note comes before it, never in its place.
TEST_F(CallbackTest, ATakeEndingAtItsFirstReportEndsOnTheWarningAfterTheNote) {
  recCapParmsRec8 parms = InPointParms(mFolder + "/short.mov", 2);
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  FakeVideoInputFrame* plain = new FakeVideoInputFrame(720, 576, 0x80);
  FrameArrivedCallback(mInstance, plain, nullptr);
  FrameArrivedCallback(mInstance, nullptr, nullptr);  // a slot whose picture the card dropped
  const size_t before = sStatus.texts.size();
  EXPECT_EQ(rmFrameLimitReached, recServiceRecord(mInstance));
  ASSERT_EQ(before + 2, sStatus.texts.size());
  EXPECT_EQ("The signal carries no timecode: recorded from its first frame, not from 01:00:00:05", sStatus.texts[before]);
  EXPECT_EQ("Recording to disk (WARNING: Dropped frames detected)", sStatus.texts.back());
  EXPECT_EQ(rmNoErr, recStopRecord(mInstance));
  plain->Release();
}

// A signal just before midnight is before an in-point just after it, not half a day past it.
TEST_F(CallbackTest, AnInPointAfterMidnightIsStillAheadOfASignalBeforeIt) {
  recCapParmsRec8 parms = Parms(mFolder + "/midnight.mov", 50);
  parms.timecodeRate = 25;
  parms.startFrameCount = 5;  // 00:00:00:05 at 25
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  FakeVideoInputFrame* evening = new FakeVideoInputFrame(720, 576, 0x80, true, 23, 59, 59, 20);
  FrameArrivedCallback(mInstance, evening, nullptr);
  EXPECT_EQ(rmNoErr, recServiceRecord(mInstance));
  EXPECT_EQ("Waiting for 00:00:00:05 (signal at 23:59:59:20)", sStatus.texts.back());
  EXPECT_FALSE(mInstance->started);
  recStopRecord(mInstance);
  evening->Release();
}

TEST_F(CallbackTest, RecordingFromNowStartsAtOnceAndRemembersTheFirstTimecode) {
  recCapParmsRec8 parms = Parms(mFolder + "/now.mov");
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  FakeVideoInputFrame* frame = new FakeVideoInputFrame(720, 576, 0x80, true, 10, 20, 30, 4);
  FrameArrivedCallback(mInstance, frame, nullptr);
  EXPECT_STREQ("10:20:30:04", mInstance->startTimeCodeString);
  flush(mInstance);
  frame->Release();
}

TEST_F(CallbackTest, LeftoverSegmentIsRemovedAndMadeAgain) {
  recCapParmsRec8 parms = Parms(mFolder + "/leftover.mov");
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  Core::SharedMemory leftover(kVideoShmKey);
  ASSERT_EQ(0, leftover.Create(16));  // left behind by a crashed run
  FakeVideoInputFrame* frame = new FakeVideoInputFrame(720, 576, 0x80);
  FrameArrivedCallback(mInstance, frame, nullptr);
  CapturedStderr captured;
  EXPECT_EQ(rmNoErr, recServiceRecord(mInstance));
  std::string text = captured.Text();
  EXPECT_NE(std::string::npos, text.find("failed with errno 17 (File exists)")) << text;
  EXPECT_EQ(std::string::npos, text.find("Create(")) << "the second Create succeeded";
  EXPECT_EQ(1, frame->References()) << "handed over and released";
  EXPECT_EQ(rmNoErr, recStopRecord(mInstance));
  EXPECT_EQ(rmNoErr, recCloseRecord(mInstance));
  frame->Release();
  ProbedMovie movie = ProbeMovie(mFolder + "/leftover.mov", false);
  EXPECT_EQ(1, movie.video.packets);
}

TEST_F(CallbackTest, TwentyFourBitSoundIsPackedToThreeBytes) {
  CaptureSettings blob = Settings(4, 0, 2, 24);
  Close(mInstance);
  mInstance = Open(&blob);
  ASSERT_EQ(rmNoErr, mHost.Call(recmod_SetActive, mInstance, 1));  // the card: 32-bit samples
  ASSERT_EQ(rmNoErr, mHost.Call(recmod_SetActive, mInstance, 0));  // then quiet again
  recCapParmsRec8 parms = Parms(mFolder + "/24bit.mov");
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  FakeVideoInputFrame* frame = new FakeVideoInputFrame(720, 576, 0x80);
  FakeAudioPacket* packet = new FakeAudioPacket(1000, 2, 4);  // 8000 bytes of 32-bit samples
  FrameArrivedCallback(mInstance, frame, packet);
  EXPECT_EQ(rmNoErr, recServiceRecord(mInstance));
  EXPECT_EQ(rmNoErr, recStopRecord(mInstance));
  frame->Release();
  ProbedMovie movie = ProbeMovie(mFolder + "/24bit.mov", false);
  ASSERT_EQ(6000u, movie.audio.bytes.size()) << "1000 stereo sample frames of 3 bytes";
  for (size_t sample = 0; sample < 2000; ++sample) {
    for (int b = 0; b < 3; ++b) {
      ASSERT_EQ(packet->Bytes()[sample * 4 + 1 + b], movie.audio.bytes[sample * 3 + b]) << sample;
    }
  }
  packet->Release();
}

TEST_F(CallbackTest, FailingStopLeavesTheQueuesFullUntilCloseRecordFlushesThem) {
  FakeVideoInputFrame* frame = nullptr;
  QueueTwiceAndKillTheServer("stop.mov", frame);
  if (HasFatalFailure()) return;
  CapturedStderr captured;
  EXPECT_EQ(5, recStopRecord(mInstance));
  EXPECT_NE(std::string::npos, captured.Text().find("*** recStopRecord[#]: Stop returned 5\n"));
  EXPECT_FALSE(mInstance->recording);
  EXPECT_EQ(2u, Queued(true)) << "left full";
  CapturedStderr again;
  EXPECT_EQ(5, recCloseRecord(mInstance));
  EXPECT_NE(std::string::npos, again.Text().find("*** recCloseRecord[#]: Stop returned 5\n")) << "said, and kept";
  EXPECT_EQ(0u, Queued(true)) << "flushed by close record";
  EXPECT_EQ(1, frame->References());
  frame->Release();
}

// The close after a Stop that failed: the instance's own Stop fails too and is said, and the
// close goes on past it: the queued frames are released, the server's process is gone and
// the instance is freed; the result is Exit's.
TEST_F(CallbackTest, CloseAfterAFailingStopStillLetsGoOfEverything) {
  FakeVideoInputFrame* frame = nullptr;
  QueueTwiceAndKillTheServer("close.mov", frame);
  if (HasFatalFailure()) return;
  const pid_t server = mInstance->recordClient->ServerPid();
  const long blocks = PluginHost::OutstandingBlocks();
  CapturedStderr captured;
  EXPECT_EQ(5, recStopRecord(mInstance));
  EXPECT_EQ(2u, Queued(true)) << "left full by the failed stop";
  EXPECT_EQ(3, frame->References());
  const int32_t closed = Close(mInstance);
  mInstance = nullptr;  // freed: nothing for TearDown to close
  const std::string log = captured.Text();
  EXPECT_NE(std::string::npos, log.find("*** recClose[#]: Stop returned 5\n")) << log;
  EXPECT_NE(rmNoErr, closed) << "Exit cannot reach a server that is gone";
  EXPECT_NE(std::string::npos, log.find("*** recClose[#]: Exit returned " + std::to_string(closed) + "\n")) << log;
  EXPECT_EQ(1, frame->References()) << "the queued frames are released";
  EXPECT_EQ(blocks - 1, PluginHost::OutstandingBlocks()) << "the instance is freed";
  EXPECT_EQ(-1, kill(server, 0)) << "the server's process is reaped";
  frame->Release();
}

// A failed hand-over ends the loop with its failure, and what it held is released at once:
// it is never handed over, and holding it would only keep the card's memory.
TEST_F(CallbackTest, FailedHandOverEndsTheLoopAndReleasesWhatItHeld) {
  FakeVideoInputFrame* frame = nullptr;
  QueueTwiceAndKillTheServer("gone.mov", frame);
  if (HasFatalFailure()) return;
  CapturedStderr captured;
  EXPECT_EQ(5, recServiceRecord(mInstance));
  EXPECT_NE(std::string::npos, captured.Text().find("MapVideo returned 5")) << "the failure is reported";
  EXPECT_EQ(1u, Queued(true)) << "the loop ended at the failure";
  EXPECT_EQ(2, frame->References()) << "the failed hand-over's frame is released, the one still queued is held";
  CapturedStderr again;
  recStopRecord(mInstance);
  recCloseRecord(mInstance);
  again.Text();
  EXPECT_EQ(0u, Queued(true));
  EXPECT_EQ(1, frame->References()) << "every reference the plug-in took is released";
  frame->Release();
}

// The queues hold at most two and a half seconds of pictures: beyond that a picture is
// given up, its slot and its sound kept, and the recording says frames were dropped.
TEST_F(CallbackTest, PicturesBeyondTwoAndAHalfSecondsAreGivenUpAndTheirSlotsKept) {
  ASSERT_EQ(rmNoErr, mHost.Call(recmod_SetActive, mInstance, 1));  // the card's sound layout
  ASSERT_EQ(rmNoErr, mHost.Call(recmod_SetActive, mInstance, 0));  // then quiet again
  recCapParmsRec8 parms = Parms(mFolder + "/bounded.mov");
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  constexpr int kLimit = 63 + 4;  // 2.5 seconds of PAL, rounded up, and four more
  constexpr int kSlots = 75;
  std::vector<FakeVideoInputFrame*> frames;
  FakeAudioPacket* packet = new FakeAudioPacket(1920, 2, 2);
  for (int i = 0; i < kSlots; ++i) {
    frames.push_back(new FakeVideoInputFrame(720, 576, static_cast<uint8_t>(i)));
    frames.back()->SetStreamTime(i, 1);
    FrameArrivedCallback(mInstance, frames.back(), packet);
  }
  EXPECT_EQ(kSlots, mInstance->frameCount);
  EXPECT_EQ(static_cast<size_t>(kSlots), Queued(true)) << "every slot is queued";
  EXPECT_EQ(static_cast<size_t>(kLimit), QueuedPictures()) << "but only so many pictures";
  EXPECT_EQ(static_cast<size_t>(kSlots), Queued(false)) << "and every packet of sound";
  EXPECT_EQ(1, frames.back()->References()) << "a picture given up is not held";
  EXPECT_EQ(rmNoErr, recServiceRecord(mInstance));
  EXPECT_EQ("Recording to disk (WARNING: Dropped frames detected)", sStatus.texts.back());
  EXPECT_EQ(kSlots, sStatus.counts.back());
  EXPECT_EQ(rmNoErr, recStopRecord(mInstance));
  for (FakeVideoInputFrame* frame : frames) {
    EXPECT_EQ(1, frame->References());
    frame->Release();
  }
  packet->Release();
  ProbedMovie movie = ProbeMovie(mFolder + "/bounded.mov", false);
  ASSERT_TRUE(movie.opened);
  ASSERT_GT(movie.video.timeBaseDen, 0) << "a picture track";
  EXPECT_EQ(kLimit, movie.video.packets);
  EXPECT_EQ(kSlots, movie.video.totalDuration * movie.video.timeBaseNum * 25 / movie.video.timeBaseDen)
      << "the last picture holds the slots given up after it";
  EXPECT_EQ(kSlots * 1920, movie.audio.totalDuration) << "no sound was given up";
}

// A round hands over the sound of every slot it takes: a run of slots without pictures
// (the card dropped them: their callbacks bring sound alone) goes over with all its sound in
// one round, so the sound queue never outgrows the video queue however few rounds the
// host's calls make time for.
TEST_F(CallbackTest, ARoundTakesTheSoundOfEverySlotItHandsOver) {
  ASSERT_EQ(rmNoErr, mHost.Call(recmod_SetActive, mInstance, 1));  // the card's sound layout
  ASSERT_EQ(rmNoErr, mHost.Call(recmod_SetActive, mInstance, 0));
  recCapParmsRec8 parms = Parms(mFolder + "/sound of gaps.mov");
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  mInstance->serviceWorkMillis = 0;  // one round a call
  FakeVideoInputFrame* frame = new FakeVideoInputFrame(720, 576, 0x80);
  FakeAudioPacket* packet = new FakeAudioPacket(1920, 2, 2);
  // Slot n on the card's clock (PAL's timescale is 25: a frame lasts 1).
  auto slot = [&](int n, bool picture) {
    frame->SetStreamTime(n, 1);
    packet->SetPacketTime(n, 25);
    FrameArrivedCallback(mInstance, picture ? frame : nullptr, packet);
  };
  slot(0, true);  // the start: sound before it is not recorded
  ASSERT_EQ(rmNoErr, recServiceRecord(mInstance));
  int slots = 1;
  for (int run = 0; run < 3; ++run) {
    for (int i = 0; i < 20; ++i, ++slots) slot(slots, false);
    slot(slots, true);
    ++slots;
    EXPECT_EQ(21u, Queued(false));
    ASSERT_EQ(rmNoErr, recServiceRecord(mInstance));
    EXPECT_EQ(0u, Queued(true)) << "the run and its picture in one round";
    EXPECT_EQ(0u, Queued(false)) << "and all of its sound";
  }
  EXPECT_FALSE(mInstance->soundGivenUp);
  EXPECT_EQ(rmNoErr, recStopRecord(mInstance));
  EXPECT_EQ(1, frame->References());
  EXPECT_EQ(1, packet->References());
  frame->Release();
  packet->Release();
  ProbedMovie movie = ProbeMovie(mFolder + "/sound of gaps.mov", false);
  ASSERT_TRUE(movie.opened);
  EXPECT_EQ(4, movie.video.packets);
  EXPECT_EQ(slots * 1920, movie.audio.totalDuration);
}

// Sound beyond the sound queue's bound is given up: the recording says frames were
// dropped, and the log says it once a recording, not once a call.
TEST_F(CallbackTest, SoundGivenUpIsLoggedOnceARecording) {
  ASSERT_EQ(rmNoErr, mHost.Call(recmod_SetActive, mInstance, 1));
  ASSERT_EQ(rmNoErr, mHost.Call(recmod_SetActive, mInstance, 0));
  recCapParmsRec8 parms = Parms(mFolder + "/sound given up.mov");
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  mInstance->soundQueueLimit = 2;
  FakeVideoInputFrame* frame = new FakeVideoInputFrame(720, 576, 0x80);
  FakeAudioPacket* packet = new FakeAudioPacket(1920, 2, 2);
  CapturedStderr captured;
  for (int call = 0; call < 3; ++call) {
    for (int i = 0; i < 4; ++i) FrameArrivedCallback(mInstance, frame, packet);
    EXPECT_EQ(2u, Queued(false));
    ASSERT_EQ(rmNoErr, recServiceRecord(mInstance));
    EXPECT_EQ("Recording to disk (WARNING: Dropped frames detected)", sStatus.texts.back());
  }
  EXPECT_EQ(rmNoErr, recStopRecord(mInstance));
  const std::string log = captured.Text();
  size_t said = 0;
  for (size_t at = log.find("Sound given up"); at != std::string::npos; at = log.find("Sound given up", at + 1)) ++said;
  EXPECT_EQ(1u, said) << log;
  frame->Release();
  packet->Release();
  ProbedMovie movie = ProbeMovie(mFolder + "/sound given up.mov", false);
  EXPECT_EQ(12, movie.video.packets);
  EXPECT_EQ(6 * 1920, movie.audio.totalDuration) << "two packets a call were kept";
}

// A recording with a frame limit takes exactly that many slots, however many more frames
// arrive before the host sees the limit reached.
TEST_F(CallbackTest, AFrameLimitTakesThatManySlotsAndNoMore) {
  recCapParmsRec8 parms = Parms(mFolder + "/exact.mov", 5);
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  FakeVideoInputFrame* frame = new FakeVideoInputFrame(720, 576, 0x80);
  for (int i = 0; i < 12; ++i) FrameArrivedCallback(mInstance, frame, nullptr);
  EXPECT_EQ(5, mInstance->frameCount);
  EXPECT_EQ(5u, Queued(true));
  EXPECT_EQ(rmFrameLimitReached, recServiceRecord(mInstance));
  EXPECT_EQ(rmNoErr, recStopRecord(mInstance));
  EXPECT_EQ(1, frame->References());
  frame->Release();
  EXPECT_EQ(5, ProbeMovie(mFolder + "/exact.mov", false).video.packets);
}

// A card that skips frames without calling at all: the jump in the frames' stream time
// shows the slots, which stay empty in the movie.
TEST_F(CallbackTest, SlotsACardSkippedShowInTheFramesStreamTime) {
  recCapParmsRec8 parms = Parms(mFolder + "/gaps.mov");
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  std::vector<FakeVideoInputFrame*> frames;
  for (int64_t time : {0, 1, 4, 5}) {  // PAL's timescale is 25: a frame lasts 1
    frames.push_back(new FakeVideoInputFrame(720, 576, 0x80));
    frames.back()->SetStreamTime(time, 1);
    FrameArrivedCallback(mInstance, frames.back(), nullptr);
  }
  EXPECT_EQ(6, mInstance->frameCount) << "two slots had no callback";
  EXPECT_EQ(6u, Queued(true));
  EXPECT_EQ(4u, QueuedPictures());
  EXPECT_EQ(rmNoErr, recServiceRecord(mInstance));
  EXPECT_EQ(rmNoErr, recStopRecord(mInstance));
  for (FakeVideoInputFrame* frame : frames) frame->Release();
  ProbedMovie movie = ProbeMovie(mFolder + "/gaps.mov", false);
  ASSERT_EQ(4, movie.video.packets);
  ASSERT_GT(movie.video.timeBaseDen, 0);
  EXPECT_EQ(std::vector<int64_t>({0, 1, 4, 5}),
            std::vector<int64_t>({movie.video.pts[0] * movie.video.timeBaseNum * 25 / movie.video.timeBaseDen,
                                  movie.video.pts[1] * movie.video.timeBaseNum * 25 / movie.video.timeBaseDen,
                                  movie.video.pts[2] * movie.video.timeBaseNum * 25 / movie.video.timeBaseDen,
                                  movie.video.pts[3] * movie.video.timeBaseNum * 25 / movie.video.timeBaseDen}));
}

// A service call returns within about a second even while the server does not answer at
// all; the next call collects the answer and goes on.
TEST_F(CallbackTest, AServiceCallReturnsWhileTheServerIsStoppedAndTheNextGoesOn) {
  recCapParmsRec8 parms = Parms(mFolder + "/stalled.mov");
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  FakeVideoInputFrame* frame = new FakeVideoInputFrame(720, 576, 0x80);
  for (int i = 0; i < 3; ++i) FrameArrivedCallback(mInstance, frame, nullptr);
  pid_t server = mInstance->recordClient->ServerPid();
  ASSERT_EQ(0, kill(server, SIGSTOP));
  auto start = std::chrono::steady_clock::now();
  int32_t rc = recServiceRecord(mInstance);
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  kill(server, SIGCONT);
  EXPECT_EQ(rmNoErr, rc);
  // About a second by design; the bound only tells a returning call from one that waits
  // for the server (which would be until the hung-server limit, ten seconds).
  EXPECT_LT(seconds, 5.0);
  EXPECT_NE(nullptr, mInstance->pending.command) << "the answer is still to come";
  EXPECT_EQ(0, sStatus.counts.back()) << "nothing counts as handed over before its answer";
  for (int i = 0; i < 100 && (Queued(true) > 0 || mInstance->pending.command); ++i) {
    ASSERT_EQ(rmNoErr, recServiceRecord(mInstance));
  }
  EXPECT_EQ(nullptr, mInstance->pending.command);
  EXPECT_EQ(3, sStatus.counts.back());
  EXPECT_EQ(rmNoErr, recStopRecord(mInstance));
  EXPECT_EQ(1, frame->References());
  frame->Release();
  EXPECT_EQ(3, ProbeMovie(mFolder + "/stalled.mov", false).video.packets);
}

// The first frame's timecode text goes through a 31-byte buffer: 30 characters and the end.
TEST_F(CallbackTest, TheStartTimecodeTextKeepsThirtyCharacters) {
  recCapParmsRec8 parms = Parms(mFolder + "/text.mov");
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  FakeVideoInputFrame* frame = new FakeVideoInputFrame(720, 576, 0x80, true, 1, 0, 0, 0);
  frame->SetTimecodeText(std::string(40, '7'));
  FrameArrivedCallback(mInstance, frame, nullptr);
  EXPECT_EQ(std::string(30, '7'), std::string(mInstance->startTimeCodeString));
  flush(mInstance);
  frame->Release();
}

TEST_F(CallbackTest, ReportHalvesTheCountAbove30FramesButNotWithTheWarning) {
  CaptureSettings blob = Settings(7, 0);  // HD 720p 50
  Close(mInstance);
  mInstance = Open(&blob);
  recCapParmsRec8 parms = Parms(mFolder + "/half.mov");
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  mInstance->frameCount = 10;
  EXPECT_EQ(rmNoErr, recServiceRecord(mInstance));
  EXPECT_EQ("Recording to disk", sStatus.texts.back());
  EXPECT_EQ(5, sStatus.counts.back()) << "halved above 30 frames a second";
  mInstance->droppedFrames = true;
  EXPECT_EQ(rmNoErr, recServiceRecord(mInstance));
  EXPECT_EQ("Recording to disk (WARNING: Dropped frames detected)", sStatus.texts.back());
  EXPECT_EQ(10, sStatus.counts.back()) << "not halved with the warning";
  mInstance->abortOnDroppedFrames = true;
  EXPECT_EQ(rmAborted, recServiceRecord(mInstance));
  recStopRecord(mInstance);
  EXPECT_EQ(1, sStatus.nullCalls) << "stop's last call carries no text";
}

TEST_F(CallbackTest, FrameLimitReachedAnswers9) {
  recCapParmsRec8 parms = Parms(mFolder + "/nine.mov", 2);
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  FakeVideoInputFrame* frame = new FakeVideoInputFrame(720, 576, 0x80);
  FrameArrivedCallback(mInstance, frame, nullptr);
  EXPECT_EQ(rmNoErr, recServiceRecord(mInstance));
  FrameArrivedCallback(mInstance, frame, nullptr);
  EXPECT_EQ(rmFrameLimitReached, recServiceRecord(mInstance));
  recStopRecord(mInstance);
  frame->Release();
}

// After a preparation that failed, only a movie file that holds nothing is removed: an empty
// one, or a movie's header without a sample; not a take with a picture, not a file of other
// contents, not one whose lock somebody holds.
TEST_F(CallbackTest, OnlyAMovieWithoutASampleIsRemovedAfterAFailedPreparation) {
  const std::string header = mFolder + "/header only.mov";
  recCapParmsRec8 parms = Parms(header);
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, recCloseRecord(mInstance));  // finished without a sample
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(header));
  ASSERT_NE(MovieSummary::Layout::kNotAMovie, summary.layout);
  ASSERT_EQ(0u, summary.pictures + summary.soundFrames);
  const std::string take = mFolder + "/take.mov";
  parms = Parms(take);
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  FakeVideoInputFrame* frame = new FakeVideoInputFrame(720, 576, 0x80);
  FrameArrivedCallback(mInstance, frame, nullptr);
  ASSERT_EQ(rmNoErr, recServiceRecord(mInstance));
  ASSERT_EQ(rmNoErr, recStopRecord(mInstance));
  ASSERT_EQ(rmNoErr, recCloseRecord(mInstance));
  frame->Release();
  const std::string notes = mFolder + "/notes.mov";
  { std::ofstream(notes) << "not a movie"; }
  const std::string held = mFolder + "/held.mov";
  { std::ofstream created(held); }
  int writer = open(held.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_LE(0, writer);
  ASSERT_EQ(0, MovieLock::TryLock(writer));
  for (const std::string& path : {header, take, notes, held}) MovieLock::RemoveIfUnrecorded(path);
  EXPECT_FALSE(fs::exists(header));
  EXPECT_TRUE(fs::exists(take));
  EXPECT_TRUE(fs::exists(notes));
  EXPECT_TRUE(fs::exists(held)) << "its lock is held";
  close(writer);
  MovieLock::RemoveIfUnrecorded(held);
  EXPECT_FALSE(fs::exists(held)) << "empty, and let go";
}

// Sound that a card delivers in callbacks of its own, between its pictures, is not a dropped
// picture: no empty slot, no warning, no abort; each callback still counts one.
TEST_F(CallbackTest, SoundInCallbacksOfItsOwnDropsNoPicture) {
  ASSERT_EQ(rmNoErr, mHost.Call(recmod_SetActive, mInstance, 1));  // the card's sound layout
  ASSERT_EQ(rmNoErr, mHost.Call(recmod_SetActive, mInstance, 0));
  recCapParmsRec8 parms = Parms(mFolder + "/sound apart.mov");
  parms.abortOnDroppedFrames = 1;
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  FakeVideoInputFrame* frame = new FakeVideoInputFrame(720, 576, 0x80);
  FakeAudioPacket* packet = new FakeAudioPacket(1920, 2, 2);
  for (int n = 0; n < 5; ++n) {  // PAL's timescale is 25: a frame lasts 1
    frame->SetStreamTime(n, 1);
    FrameArrivedCallback(mInstance, frame, nullptr);
    packet->SetPacketTime(n, 25);  // the sound of the picture just delivered
    FrameArrivedCallback(mInstance, nullptr, packet);
  }
  EXPECT_EQ(10, mInstance->frameCount) << "each callback counts one";
  EXPECT_EQ(5u, Queued(true)) << "a slot for each picture and no more";
  EXPECT_EQ(5u, QueuedPictures());
  EXPECT_EQ(5u, Queued(false));
  EXPECT_EQ(rmNoErr, recServiceRecord(mInstance)) << "nothing was dropped: no abort";
  EXPECT_EQ("Recording to disk", sStatus.texts.back());
  EXPECT_FALSE(mInstance->droppedFrames);
  EXPECT_EQ(rmNoErr, recStopRecord(mInstance));
  frame->Release();
  packet->Release();
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(mFolder + "/sound apart.mov"));
  EXPECT_EQ(5u, summary.pictures);
  EXPECT_EQ(0u, summary.EmptySlots());
  EXPECT_EQ(5u * 1920, summary.soundFrames);
}

// A callback whose sound comes where the next picture was due, or that brings nothing at
// all, is a slot whose picture the card dropped: it stays an empty slot, the report warns
// and a take that asked to is aborted.
TEST_F(CallbackTest, APictureTheCardDroppedLeavesAnEmptySlot) {
  ASSERT_EQ(rmNoErr, mHost.Call(recmod_SetActive, mInstance, 1));
  ASSERT_EQ(rmNoErr, mHost.Call(recmod_SetActive, mInstance, 0));
  recCapParmsRec8 parms = Parms(mFolder + "/dropped.mov");
  parms.abortOnDroppedFrames = 1;
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  FakeVideoInputFrame* frame = new FakeVideoInputFrame(720, 576, 0x80);
  FakeAudioPacket* packet = new FakeAudioPacket(1920, 2, 2);
  for (int n = 0; n < 4; ++n) {
    frame->SetStreamTime(n, 1);
    packet->SetPacketTime(n, 25);
    FrameArrivedCallback(mInstance, n == 2 ? nullptr : frame, packet);  // slot 2 without its picture
  }
  FrameArrivedCallback(mInstance, nullptr, nullptr);  // slot 4: nothing at all
  frame->SetStreamTime(5, 1);
  packet->SetPacketTime(5, 25);
  FrameArrivedCallback(mInstance, frame, packet);
  EXPECT_EQ(6, mInstance->frameCount);
  EXPECT_EQ(6u, Queued(true));
  EXPECT_EQ(4u, QueuedPictures());
  EXPECT_EQ(rmAborted, recServiceRecord(mInstance));
  EXPECT_EQ("Recording to disk (WARNING: Dropped frames detected)", sStatus.texts.back());
  EXPECT_EQ(rmNoErr, recStopRecord(mInstance));
  frame->Release();
  packet->Release();
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(mFolder + "/dropped.mov"));
  EXPECT_EQ(4u, summary.pictures);
  EXPECT_EQ(2u, summary.EmptySlots());
  EXPECT_EQ(5u * 1920, summary.soundFrames);
}

// A card that cannot read the frames' timecode is said once a recording, with its answer;
// the take's start is then the host's answer, as for a frame without timecode, but the
// movie carries no timecode track made from it.
TEST_F(CallbackTest, AnUnreadableTimecodeIsSaidOnceAndNoneIsMadeUp) {
  const std::string movie = mFolder + "/unreadable.mov";
  recCapParmsRec8 parms = Parms(movie);
  parms.timecodeFunc = HostWithoutDeck;
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  FakeVideoInputFrame* frame = new FakeVideoInputFrame(720, 576, 0x80, true, 10, 20, 30, 4);
  frame->SetTimecodeFailure(kVeldranFail);
  const std::string line = "*** FrameTimecode[#]: GetTimecode('rp18') returned -2147483646 (0x80000002)";
  CapturedStderr captured;
  for (int i = 0; i < 3; ++i) FrameArrivedCallback(mInstance, frame, nullptr);
  EXPECT_EQ(1u, Occurrences(captured.Text(), line)) << "once a recording";
  EXPECT_TRUE(mInstance->started);
  // The host's own answer is what the start reports, as for a frame without timecode...
  EXPECT_STREQ("00:00:00:00", mInstance->startTimeCodeString);
  EXPECT_EQ(rmNoErr, recServiceRecord(mInstance));
  EXPECT_EQ(rmNoErr, recStopRecord(mInstance));
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(movie));
  EXPECT_EQ(3u, summary.pictures);
  // ...but the movie is not stamped with it: no timecode track rather than a wrong one.
  EXPECT_FALSE(summary.hasTimecode);

  // The next recording says it again; a host that has a timecode gives the start.
  parms = Parms(mFolder + "/host's.mov");
  parms.timecodeFunc = HostAtOneHour;
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  CapturedStderr again;
  FrameArrivedCallback(mInstance, frame, nullptr);
  EXPECT_EQ(1u, Occurrences(again.Text(), line));
  EXPECT_STREQ("01:00:00:00", mInstance->startTimeCodeString);
  flush(mInstance);
  frame->Release();
}

// The first frame may come just as selector 5 stops waiting for it: the timecode text goes
// from the device thread to the host's under the recording's lock, never read while it is
// written (a ThreadSanitizer build checks this).
TEST_F(CallbackTest, TheFirstTimecodeMayComeJustAsTheStartStopsWaiting) {
  recCapParmsRec8 parms = Parms(mFolder + "/late first frame.mov");
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  FakeVideoInputFrame* frame = new FakeVideoInputFrame(720, 576, 0x80, true, 10, 20, 30, 4);
  // Relaxed on both sides: the device thread learns that the wait is over without anything
  // ordering the two threads' memory, as the card's own thread would.
  std::atomic<bool> waitOver{false};
  std::thread device([&] {
    while (!waitOver.load(std::memory_order_relaxed)) std::this_thread::yield();
    FrameArrivedCallback(mInstance, frame, nullptr);
  });
  recStartReply reply = {};
  int32_t rc = mHost.Call(recmod_StartRecord, mInstance, reinterpret_cast<intptr_t>(&reply));
  waitOver.store(true, std::memory_order_relaxed);
  device.join();
  EXPECT_EQ(rmNoErr, rc);
  EXPECT_STREQ("", reply.startTimecode) << "the wait ended before the first frame";
  EXPECT_STREQ("10:20:30:04", mInstance->startTimeCodeString);
  flush(mInstance);
  frame->Release();
}

// The card's thread reads a picture's timecode only for the start condition; the host's
// thread reads every picture's as it hands it over, and finds where the tape's timecode
// broke: once, at the picture whose timecode does not follow on from the previous one's
// counting the slots between them (a slot the card dropped is no break). The break is in
// the events sidecar as soon as it is handed over (beside the server's own events: the
// skipped slot is dropped), and the stamp gives the movie a timecode sample per run.
TEST_F(CallbackTest, TimecodeBreaksAreFoundOnTheHostsThreadAsPicturesAreHandedOver) {
  const std::string movie = mFolder + "/breaks.mov";
  recCapParmsRec8 parms = Parms(movie);
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  // Stream times (PAL: a frame lasts 1) and timecodes: slot 5 never comes, slot 8 jumps.
  struct Picture {
    int64_t time;
    int h, m, s, f;
  };
  const Picture pictures[] = {{0, 1, 0, 0, 0}, {1, 1, 0, 0, 1}, {2, 1, 0, 0, 2}, {3, 1, 0, 0, 3},
                              {4, 1, 0, 0, 4}, {6, 1, 0, 0, 6}, {7, 1, 0, 0, 7}, {8, 2, 0, 0, 0},
                              {9, 2, 0, 0, 1}};
  std::vector<FakeVideoInputFrame*> frames;
  for (const Picture& picture : pictures) {
    frames.push_back(new FakeVideoInputFrame(720, 576, 0x80, true, picture.h, picture.m, picture.s, picture.f));
    frames.back()->SetStreamTime(picture.time, 1);
  }
  std::thread::id cardThread;
  std::thread card([&] {
    cardThread = std::this_thread::get_id();
    for (FakeVideoInputFrame* frame : frames) FrameArrivedCallback(mInstance, frame, nullptr);
  });
  card.join();
  ASSERT_EQ(10, mInstance->frameCount) << "nine pictures and the slot the card skipped";
  for (FakeVideoInputFrame* frame : frames) {
    EXPECT_TRUE(frame->TimecodeReaders().size() == (frame == frames[0] ? 1u : 0u))
        << "the card's thread reads the first picture's timecode alone, for the start";
  }
  for (int call = 0; call < 20 && Queued(true) > 0; ++call) ASSERT_EQ(rmNoErr, recServiceRecord(mInstance));
  ASSERT_EQ(0u, Queued(true));

  const std::thread::id host = std::this_thread::get_id();
  for (size_t i = 0; i < frames.size(); ++i) {
    std::vector<std::thread::id> readers = frames[i]->TimecodeReaders();
    std::vector<std::thread::id> expected;
    if (i == 0) expected.push_back(cardThread);
    expected.push_back(host);
    EXPECT_TRUE(readers == expected) << "picture " << i << ": once on the host's thread as it was handed over";
  }
  // The break is in the sidecar before the take ends.
  std::vector<SignalEvent> events;
  {
    std::istringstream lines(FileText(MovieSidecars::Events(movie)));
    std::string line;
    while (std::getline(lines, line)) {
      SignalEvent event;
      ASSERT_TRUE(SignalEvent::Parse(line, &event)) << line;
      if (event.kind == SignalEvent::Kind::kTimecodeBreak) events.push_back(event);
    }
  }
  ASSERT_EQ(1u, events.size()) << FileText(MovieSidecars::Events(movie));
  EXPECT_EQ(SignalEvent::Kind::kTimecodeBreak, events[0].kind);
  EXPECT_EQ(8, events[0].slot);
  EXPECT_EQ(1, events[0].frames);
  EXPECT_EQ("01:00:00:07", events[0].before);
  EXPECT_EQ("02:00:00:00", events[0].after);

  ASSERT_EQ(rmNoErr, recStopRecord(mInstance));
  for (FakeVideoInputFrame* frame : frames) frame->Release();
  std::vector<TimecodeRun> runs;
  ASSERT_EQ(0, TimecodeTrack::ReadRuns(movie, runs));
  ASSERT_EQ(2u, runs.size());
  EXPECT_EQ(0, runs[0].slot);
  EXPECT_EQ("01:00:00:00", runs[0].text);
  EXPECT_EQ(8, runs[1].slot);
  EXPECT_EQ("02:00:00:00", runs[1].text);
}

// A card whose events sidecar cannot be written (a folder stands at its name) says so once;
// the take goes on and is stamped with its runs all the same.
TEST_F(CallbackTest, AnEventsSidecarThatCannotBeWrittenNeverFailsTheTake) {
  const std::string movie = mFolder + "/unwritable.mov";
  recCapParmsRec8 parms = Parms(movie);
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  // In place of the sidecar the server made at Prepare (it keeps writing its own, unlinked).
  unlink(MovieSidecars::Events(movie).c_str());
  ASSERT_EQ(0, mkdir(MovieSidecars::Events(movie).c_str(), 0700));
  ASSERT_EQ(rmNoErr, Start(mInstance));
  std::vector<FakeVideoInputFrame*> frames;
  for (int i = 0; i < 4; ++i) {
    // Every picture after the first jumps an hour: three breaks.
    frames.push_back(new FakeVideoInputFrame(720, 576, 0x80, true, 1 + i, 0, 0, 0));
    frames.back()->SetStreamTime(i, 1);
    FrameArrivedCallback(mInstance, frames.back(), nullptr);
  }
  CapturedStderr captured;
  for (int call = 0; call < 20 && Queued(true) > 0; ++call) ASSERT_EQ(rmNoErr, recServiceRecord(mInstance));
  EXPECT_EQ(1u, Occurrences(captured.Text(), "are not kept in")) << captured.Text();
  ASSERT_EQ(rmNoErr, recStopRecord(mInstance));
  for (FakeVideoInputFrame* frame : frames) frame->Release();
  std::vector<TimecodeRun> runs;
  ASSERT_EQ(0, TimecodeTrack::ReadRuns(movie, runs));
  EXPECT_EQ(4u, runs.size());
}

// A card's capture thread: calls FrameArrivedCallback with its one frame (with a timecode
// and the next slot's stream time) about every millisecond until it is destroyed.
class FakeCaptureThread {
 public:
  explicit FakeCaptureThread(CapPriv* instance)
      : mFrame(new FakeVideoInputFrame(720, 576, 0x80, true, 10, 20, 30, 4)),
        mThread([this, instance] {
          for (int64_t slot = 0; !mStop; ++slot) {
            mFrame->SetStreamTime(slot, 1);
            FrameArrivedCallback(instance, mFrame, nullptr);
            mCalls.fetch_add(1, std::memory_order_relaxed);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
          }
        }) {}
  ~FakeCaptureThread() {
    mStop = true;
    mThread.join();
    mFrame->Release();
  }
  // Callbacks made so far (read without ordering anything).
  int64_t Calls() const { return mCalls.load(std::memory_order_relaxed); }

 private:
  FakeVideoInputFrame* mFrame;
  std::atomic<bool> mStop{false};
  std::atomic<int64_t> mCalls{0};
  std::thread mThread;
};

// A recording closed without a stop leaves the card's thread calling; the next preparation
// sets up its recording while frames keep arriving (a ThreadSanitizer build checks that they
// never meet), and nothing is queued again before the next start.
TEST_F(CallbackTest, PreparingAfterACloseWhileFramesKeepArriving) {
  recCapParmsRec8 parms = Parms(mFolder + "/first.mov");
  ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
  {
    FakeCaptureThread card(mInstance);
    ASSERT_EQ(rmNoErr, Start(mInstance));
    ASSERT_TRUE(WaitFor([&] { return mInstance->frameCount >= 3; }));
    ASSERT_EQ(rmNoErr, recServiceRecord(mInstance));
    ASSERT_EQ(rmNoErr, recCloseRecord(mInstance));
    EXPECT_TRUE(mInstance->recording) << "a close without a stop";
    parms = Parms(mFolder + "/second.mov");
    ASSERT_EQ(rmNoErr, Prep(mInstance, parms));
    const int64_t prepared = card.Calls();
    ASSERT_TRUE(WaitFor([&] { return card.Calls() >= prepared + 5; }));
    EXPECT_EQ(0, mInstance->frameCount) << "nothing queued before the start";
    EXPECT_FALSE(mInstance->started);
    ASSERT_EQ(rmNoErr, Start(mInstance));
    ASSERT_TRUE(WaitFor([&] { return mInstance->frameCount >= 3; }));
    ASSERT_EQ(rmNoErr, recServiceRecord(mInstance));
    ASSERT_EQ(rmNoErr, recStopRecord(mInstance));  // the card's thread queues nothing more
  }
  EXPECT_EQ(rmNoErr, recCloseRecord(mInstance));
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(mFolder + "/second.mov"));
  EXPECT_GE(summary.pictures, 3u);
  EXPECT_EQ("10:20:30:04", summary.startTimecode);
}

}  // namespace
}  // namespace KTN
