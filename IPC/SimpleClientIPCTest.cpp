// Tests of the client exchange: limits, what is written, and how acknowledgements read.
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>

#include "IPC/QTRecordClientIPC.h"
#include "IPC/TestStreams.h"
#include "Util/CapturedStderr.h"
#include "Util/FourCC.h"

namespace KTN {
namespace {

using Util::CapturedStderr;

// Counts the exchange hooks, which must pair up on every way out.
class FakeCountingClient : public QTRecordClientIPC {
 public:
  void Lock() override { ++mLocks; }
  void Unlock() override { ++mUnlocks; }
  int mLocks = 0;
  int mUnlocks = 0;
};

// A client whose server answers with the given text; what it writes is kept.
class ClientHarness {
 public:
  explicit ClientHarness(const std::string& answers) : mInput(InputStream(answers)), mOutput(OutputStream()) {
    mClient.Init(mInput, mOutput);
  }
  ~ClientHarness() {
    fclose(mInput);
    fclose(mOutput);
  }
  FakeCountingClient& Client() { return mClient; }
  std::string Written() { return WrittenText(mOutput); }

 private:
  FILE* mInput;
  FILE* mOutput;
  FakeCountingClient mClient;
};

TEST(SimpleClientIPCTest, LongestCommandAndArgumentAreSent) {
  std::string command(32, 'C');
  std::string argument(4096, 'a');
  ClientHarness harness(command + " 0\n");
  EXPECT_EQ(0, harness.Client().SendCommandSync(command.c_str(), argument.c_str()));
  EXPECT_EQ(command + " " + argument + "\n", harness.Written());
}

TEST(SimpleClientIPCTest, OverlongCommandIsRefusedAndNothingWritten) {
  std::string command(33, 'C');
  ClientHarness harness(command + " 0\n");
  CapturedStderr captured;
  EXPECT_EQ(22, harness.Client().SendCommandSync(command.c_str(), static_cast<const char*>(nullptr)));
  EXPECT_EQ("*** SendCommandSync[#]: Command string \"" + command + "\" too long (max 32)\n", captured.Text());
  EXPECT_EQ("", harness.Written());
  EXPECT_EQ(1, harness.Client().mLocks);
  EXPECT_EQ(1, harness.Client().mUnlocks);
}

TEST(SimpleClientIPCTest, OverlongArgumentIsRefusedAndNothingWritten) {
  std::string argument(4097, 'a');
  ClientHarness harness("X 0\n");
  CapturedStderr captured;
  EXPECT_EQ(22, harness.Client().SendCommandSync("X", argument.c_str()));
  EXPECT_EQ("*** SendCommandSync[#]: Argument string \"" + argument + "\" too long (max 4096)\n", captured.Text());
  EXPECT_EQ("", harness.Written());
}

TEST(SimpleClientIPCTest, ArgumentWithALineFeedIsRefusedAndNothingWritten) {
  for (const char* argument : {"/tmp/a\nExit.mov", "/tmp/b\r\n.mov", "\n"}) {
    ClientHarness harness("SetFilePath 0\n");
    CapturedStderr captured;
    EXPECT_EQ(22, harness.Client().SendCommandSync("SetFilePath", argument));
    EXPECT_EQ("*** SendCommandSync[#]: Argument of SetFilePath holds a line feed: refused\n", captured.Text());
    EXPECT_EQ("", harness.Written());
  }
  // Spaces, quotes, UTF-8 and carriage returns pass as they are: only a line feed ends a line.
  for (const char* argument : {"/tmp/Take 1 \"A\" 'b' \xc3\xa9t\xc3\xa9.mov", "/tmp/b\r.mov", "\r"}) {
    ClientHarness harness("SetFilePath 0\n");
    CapturedStderr captured;
    EXPECT_EQ(0, harness.Client().SendCommandSync("SetFilePath", argument));
    EXPECT_EQ(std::string("SetFilePath ") + argument + "\n", harness.Written());
    EXPECT_EQ("", captured.Text());
  }
}

TEST(SimpleClientIPCTest, NullCommandIsRefused) {
  ClientHarness harness("");
  CapturedStderr captured;
  EXPECT_EQ(22, harness.Client().SendCommandSync(nullptr, "x"));
  EXPECT_EQ("*** SendCommandSync[#]: NULL command string\n", captured.Text());
  EXPECT_EQ(1, harness.Client().mUnlocks);
}

struct AnswerCase {
  const char* answer;  // the server's line
  long status;         // what Stop returns
  const char* report;  // the failure line, masked
};

const AnswerCase kAnswerCases[] = {
    {"Stop 0\n", 0, ""},
    {"Stop\n", 22, "*** SendCommandSync[#]: Missing acknowledgement status\n"},
    {"Prepare 0\n", 22, "*** SendCommandSync[#]: Bad acknowledgement \"Prepare\" for command \"Stop\"\n"},
    {"stop 0\n", 22, "*** SendCommandSync[#]: Bad acknowledgement \"stop\" for command \"Stop\"\n"},
    {"Stop -1\n", -1, ""},
    {"Stop abc\n", 0, ""},
    {"Stop  28\n", 28, ""},
    {"Stop 7 trailing\n", 7, ""},
    {"", 5, "*** SendCommandSync[#]: ReadLine returned 5\n"},
};

TEST(SimpleClientIPCTest, AcknowledgementsRead) {
  for (const AnswerCase& c : kAnswerCases) {
    ClientHarness harness(c.answer);
    CapturedStderr captured;
    EXPECT_EQ(c.status, harness.Client().Stop()) << c.answer;
    EXPECT_EQ(c.report, captured.Text()) << c.answer;
    EXPECT_EQ("Stop\n", harness.Written());
    EXPECT_EQ(harness.Client().mLocks, harness.Client().mUnlocks);
  }
}

TEST(SimpleClientIPCTest, StaleAcknowledgementIsNotResynchronised) {
  ClientHarness harness("Begin 0\nStop 0\n");
  CapturedStderr captured;
  EXPECT_EQ(22, harness.Client().Stop());
  EXPECT_EQ(22, harness.Client().Exit()) << "the next line answers Stop, not Exit";
}

// Every client method and the line it sends.
struct MethodCase {
  std::function<long(QTRecordClientIPC&)> call;
  const char* line;
};

const int kJpeg = static_cast<int>(Util::FourCC("jpeg"));
const int kVendor = static_cast<int>(Util::FourCC("KTRN"));

const MethodCase kMethodCases[] = {
    {[](QTRecordClientIPC& c) { return c.GetCodecManufacturer(kJpeg); }, "GetCodecManufacturer 1785750887\n"},
    {[](QTRecordClientIPC& c) { return c.Begin(); }, "Begin\n"},
    {[](QTRecordClientIPC& c) { return c.SetVideoEnabled(true); }, "SetVideoEnabled 1\n"},
    {[](QTRecordClientIPC& c) { return c.SetVideoDuration(1001); }, "SetVideoDuration 1001\n"},
    {[](QTRecordClientIPC& c) { return c.SetVideoTimescale(30000); }, "SetVideoTimescale 30000\n"},
    {[](QTRecordClientIPC& c) { return c.SetVideoWidth(1920); }, "SetVideoWidth 1920\n"},
    {[](QTRecordClientIPC& c) { return c.SetVideoHeight(1080); }, "SetVideoHeight 1080\n"},
    {[](QTRecordClientIPC& c) { return c.SetPixelAspectRatioX(648); }, "SetPixelAspectRatioX 648\n"},
    {[](QTRecordClientIPC& c) { return c.SetPixelAspectRatioY(720); }, "SetPixelAspectRatioY 720\n"},
    {[](QTRecordClientIPC& c) { return c.SetVideoCodecType(kJpeg); }, "SetVideoCodecType 1785750887\n"},
    {[](QTRecordClientIPC& c) { return c.SetVideoCodecVendor(kVendor); }, "SetVideoCodecVendor 1263817294\n"},
    {[](QTRecordClientIPC& c) { return c.SetVideoCodecQuality(1023); }, "SetVideoCodecQuality 1023\n"},
    {[](QTRecordClientIPC& c) { return c.SetAudioEnabled(false); }, "SetAudioEnabled 0\n"},
    {[](QTRecordClientIPC& c) { return c.SetAudioChannels(2); }, "SetAudioChannels 2\n"},
    {[](QTRecordClientIPC& c) { return c.SetAudioType(16); }, "SetAudioType 16\n"},
    {[](QTRecordClientIPC& c) { return c.SetAudioRate(48000); }, "SetAudioRate 48000\n"},
    {[](QTRecordClientIPC& c) { return c.SetFilePath("/Volumes/My Disk/clip.mov"); },
     "SetFilePath /Volumes/My Disk/clip.mov\n"},
    {[](QTRecordClientIPC& c) { return c.Prepare(); }, "Prepare\n"},
    {[](QTRecordClientIPC& c) { return c.MapVideo(ULLONG_MAX); }, "MapVideo 18446744073709551615\n"},
    {[](QTRecordClientIPC& c) { return c.MapAudio(6400); }, "MapAudio 6400\n"},
    {[](QTRecordClientIPC& c) { return c.Stop(); }, "Stop\n"},
    {[](QTRecordClientIPC& c) { return c.Exit(); }, "Exit\n"},
    {[](QTRecordClientIPC& c) { return c.SkipVideo(3); }, "SkipVideo 3\n"},
    {[](QTRecordClientIPC& c) { return c.SetVideoCodecType(static_cast<int>(0x80000001u)); },
     "SetVideoCodecType -2147483647\n"},
};

TEST(QTRecordClientIPCTest, EachMethodSendsItsLine) {
  for (const MethodCase& c : kMethodCases) {
    std::string line = c.line;
    std::string word = line.substr(0, line.find_first_of(" \n"));
    ClientHarness harness(word + " 42\n");
    EXPECT_EQ(42, c.call(harness.Client())) << c.line;
    EXPECT_EQ(c.line, harness.Written());
  }
}

}  // namespace
}  // namespace KTN
