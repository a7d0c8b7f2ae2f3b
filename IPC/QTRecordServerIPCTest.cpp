// Tests of the server's command dispatch and loop.
#include <gtest/gtest.h>

#include <unistd.h>

#include <climits>
#include <string>

#include "IPC/Pipe.h"
#include "IPC/QTRecordServerIPC.h"
#include "IPC/TestStreams.h"
#include "Util/CapturedStderr.h"
#include "Util/FileIo.h"

namespace KTN {
namespace {

using Util::CapturedStderr;

// Records what each pure operation was called with.
class FakeRecordingServer : public QTRecordServerIPC {
 public:
  long GetCodecManufacturer(int codecType) override { return codecType + 1; }
  long Begin() override { mCalls += "Begin;"; return 0; }
  long SetVideoEnabled(bool enabled) override {
    mVideoEnabled = enabled;
    mVideoEnabledCalls += enabled ? "1;" : "0;";
    return 0;
  }
  long SetAudioEnabled(bool enabled) override {
    mAudioEnabled = enabled;
    mAudioEnabledCalls += enabled ? "1;" : "0;";
    return 0;
  }
  long SetFilePath(const char* path) override { mFilePath = path; return 0; }
  long Prepare() override { mCalls += "Prepare;"; return 0; }
  long MapVideo(unsigned long long size) override { mVideoSize = size; return 7; }
  long MapAudio(unsigned long long size) override { mAudioSize = size; return 0; }
  long Stop() override { mCalls += "Stop;"; return 0; }
  long InputEnded() override { return 0; }

  int Width() const { return mVideoWidth; }
  long long Duration() const { return mVideoDuration; }
  int CodecType() const { return mVideoCodecType; }

  // The settings are the server's own fields; the test reads them.
  using QTRecordServerIPC::mAudioEnabled;
  using QTRecordServerIPC::mFilePath;
  using QTRecordServerIPC::mVideoEnabled;

  std::string mCalls;
  std::string mVideoEnabledCalls;  // each call's flag, "1;" or "0;"
  std::string mAudioEnabledCalls;
  unsigned long long mVideoSize = 0;
  unsigned long long mAudioSize = 0;
};

// Serves script to the end and returns the acknowledgements written.
std::string Serve(FakeRecordingServer& server, const std::string& script, long* result = nullptr) {
  FILE* input = InputStream(script);
  FILE* output = OutputStream();
  server.Init(input, output);
  long rc = server.Run();
  if (result) *result = rc;
  std::string written = WrittenText(output);
  fclose(input);
  fclose(output);
  return written;
}

TEST(QTRecordServerIPCTest, ExitWithAnArgumentStillStops) {
  FakeRecordingServer server;
  long result = -1;
  EXPECT_EQ("Exit 0\n", Serve(server, "Exit now\nBegin\n", &result));
  EXPECT_EQ(0, result);
  EXPECT_EQ("", server.mCalls) << "nothing after Exit is served";
}

TEST(QTRecordServerIPCTest, SetterWithoutArgumentIsRefused) {
  FakeRecordingServer server;
  CapturedStderr captured;
  EXPECT_EQ("SetVideoWidth 0\nSetVideoWidth 22\nExit 0\n",
            Serve(server, "SetVideoWidth 1920\nSetVideoWidth\nExit\n"));
  EXPECT_EQ(1920, server.Width()) << "unchanged by the refused command";
  EXPECT_EQ("*** Execute[#]: Can't dispatch cmd \"SetVideoWidth\" with arg \"(null)\"\n", captured.Text());
}

TEST(QTRecordServerIPCTest, NumbersAreParsedAsTheTableSays) {
  FakeRecordingServer server;
  EXPECT_EQ("SetVideoWidth 0\nSetVideoEnabled 0\nSetAudioEnabled 0\nSetAudioEnabled 0\nMapVideo 7\n"
            "SetVideoDuration 0\nSetVideoCodecType 0\nGetCodecManufacturer 1785750888\nSetVideoEnabled 0\nExit 0\n",
            Serve(server,
                  "SetVideoWidth 4294969216\nSetVideoEnabled 2\nSetAudioEnabled 1\nSetAudioEnabled x\n"
                  "MapVideo 18446744073709551615\nSetVideoDuration -1001\nSetVideoCodecType -2147483647\n"
                  "GetCodecManufacturer 1785750887\nSetVideoEnabled x\nExit\n"));
  EXPECT_EQ(1920, server.Width()) << "only the low 32 bits are kept";
  // A non-numeric flag parses as 0: it turns off what an earlier command turned on.
  EXPECT_EQ("1;0;", server.mVideoEnabledCalls) << "SetVideoEnabled 2 enables, SetVideoEnabled x disables";
  EXPECT_FALSE(server.mVideoEnabled);
  EXPECT_EQ("1;0;", server.mAudioEnabledCalls);
  EXPECT_FALSE(server.mAudioEnabled);
  EXPECT_EQ(ULLONG_MAX, server.mVideoSize);
  EXPECT_EQ(-1001, server.Duration());
  EXPECT_EQ(static_cast<int>(0x80000001u), server.CodecType());
}

TEST(QTRecordServerIPCTest, CommandWordsAreCaseSensitive) {
  FakeRecordingServer server;
  CapturedStderr captured;
  EXPECT_EQ("begin 22\nBegin 0\nExit 0\n", Serve(server, "begin\nBegin\nExit\n"));
  EXPECT_EQ("Begin;", server.mCalls);
  EXPECT_EQ("*** Execute[#]: Can't dispatch cmd \"begin\" with arg \"(null)\"\n", captured.Text());
}

TEST(QTRecordServerIPCTest, PathsKeepTheirSpacesAndCommandsWithoutArgumentIgnoreOne) {
  FakeRecordingServer server;
  EXPECT_EQ("SetFilePath 0\nPrepare 0\nStop 0\nMapAudio 0\nExit 0\n",
            Serve(server, "SetFilePath /Volumes/My Disk/clip.mov\nPrepare now\nStop 1\nMapAudio 6400\nExit\n"));
  EXPECT_EQ("/Volumes/My Disk/clip.mov", server.mFilePath);
  EXPECT_EQ("Prepare;Stop;", server.mCalls);
  EXPECT_EQ(6400u, server.mAudioSize);
}

TEST(QTRecordServerIPCTest, EndOfInputEndsTheLoopWith5) {
  FakeRecordingServer server;
  CapturedStderr captured;
  long result = 0;
  EXPECT_EQ("Begin 0\n", Serve(server, "Begin\n", &result));
  EXPECT_EQ(5, result);
  EXPECT_EQ("*** Run[#]: ReadLine returned 5\n", captured.Text());
}

TEST(QTRecordServerIPCTest, UnknownCommandsAreAnsweredAndServingGoesOn) {
  FakeRecordingServer server;
  CapturedStderr captured;
  EXPECT_EQ("Rewind 22\nMapVideo 22\nBegin 0\nExit 0\n", Serve(server, "Rewind 10\nMapVideo\nBegin\nExit\n"));
  EXPECT_EQ("*** Execute[#]: Can't dispatch cmd \"Rewind\" with arg \"10\"\n"
            "*** Execute[#]: Can't dispatch cmd \"MapVideo\" with arg \"(null)\"\n",
            captured.Text());
}

// Skipped frame slots reach a server that keeps them; one that does not refuses them.
class FakeSlotKeepingServer : public FakeRecordingServer {
 public:
  long SkipVideo(unsigned long long frames) override {
    mSkipped += frames;
    return 0;
  }
  unsigned long long mSkipped = 0;
};

TEST(QTRecordServerIPCTest, SkippedFrameSlotsAreDispatched) {
  FakeSlotKeepingServer keeping;
  EXPECT_EQ("SkipVideo 0\nSkipVideo 0\nSkipVideo 22\nExit 0\n", Serve(keeping, "SkipVideo 3\nSkipVideo 2\nSkipVideo\nExit\n"));
  EXPECT_EQ(5u, keeping.mSkipped);
  FakeRecordingServer plain;
  CapturedStderr captured;
  EXPECT_EQ("SkipVideo 22\nExit 0\n", Serve(plain, "SkipVideo 1\nExit\n"));
  EXPECT_EQ("*** SkipVideo[#]: This server keeps no time slots: 1 skipped frames refused\n", captured.Text());
}

// A server that refuses every setter, as one with a recording open does.
class FakeBusyServer : public FakeRecordingServer {
 protected:
  long AcceptSetting(const char* command) override {
    mRefused += std::string(command) + ";";
    return 22;
  }

 public:
  std::string mRefused;
};

TEST(QTRecordServerIPCTest, ARefusedSettingIsAnsweredAndNotApplied) {
  FakeBusyServer server;
  EXPECT_EQ("SetVideoWidth 22\nSetFilePath 22\nSetVideoEnabled 22\nPrepare 0\nMapVideo 7\nStop 0\n",
            Serve(server, "SetVideoWidth 1920\nSetFilePath /x.mov\nSetVideoEnabled 1\nPrepare\nMapVideo 10\nStop\n"));
  EXPECT_EQ("SetVideoWidth;SetFilePath;SetVideoEnabled;", server.mRefused) << "asked once for each setter";
  EXPECT_EQ(0, server.Width());
  EXPECT_EQ("", server.mFilePath);
  EXPECT_EQ("", server.mVideoEnabledCalls);
  EXPECT_EQ("Prepare;Stop;", server.mCalls) << "other commands are served";
}

// Serves what was written into a real pipe, to the end, and returns the acknowledgements.
std::string ServeThroughPipe(FakeRecordingServer& server, const std::string& script) {
  Pipe pipe;
  if (pipe.Open()) return "(no pipe)";
  // The script fits the pipe's buffer, so it is written whole before the loop reads it.
  if (Util::FileIo::WriteAll(pipe.WriteEnd(), script.data(), script.size())) return "(write failed)";
  pipe.CloseWriteEnd();
  FILE* input = fdopen(pipe.TakeReadEnd(), "r");
  FILE* output = OutputStream();
  server.Init(input, output);
  server.Run();
  std::string answers = WrittenText(output);
  fclose(input);
  fclose(output);
  return answers;
}

// A line longer than the endpoint's buffer is read to its end and refused whole with one
// answer; nothing of it is executed, its tail included. A line that just fits is served.
TEST(QTRecordServerIPCTest, OverlongLinesAreRefusedWholeWithOneAnswer) {
  const int longest = SimpleEndpointIPC::kLineBufferSize - 1;  // characters before the line feed
  const std::string fits = "SetFilePath /" + std::string(static_cast<size_t>(longest) - 13, 'f');
  ASSERT_EQ(static_cast<size_t>(longest), fits.size());
  {
    FakeRecordingServer server;
    EXPECT_EQ("SetFilePath 0\nBegin 0\n", ServeThroughPipe(server, fits + "\nBegin\n"));
    EXPECT_EQ(fits.substr(12), server.mFilePath) << "the longest line is one command";
  }
  {
    FakeRecordingServer server;
    CapturedStderr captured;
    // One character too many; the tail would read as "Begin" if it were served.
    const std::string over = "SetFilePath /" + std::string(static_cast<size_t>(longest) - 13, 'f') + "Begin";
    EXPECT_EQ("SetFilePath 22\nStop 0\n", ServeThroughPipe(server, over + "\nStop\n"));
    EXPECT_EQ("", server.mFilePath) << "not executed with a cut path";
    EXPECT_EQ("Stop;", server.mCalls) << "its tail is no command";
    EXPECT_NE(std::string::npos, captured.Text().find("A line of more than 4129 characters (\"SetFilePath ...\") refused whole"))
        << captured.Text();
  }
  {
    // A single word far longer than the buffer, and one whose NUL hides its length.
    FakeRecordingServer server;
    CapturedStderr captured;
    const std::string word(3 * static_cast<size_t>(longest), 'B');
    const std::string hidden = std::string("Begin\0", 6) + std::string(static_cast<size_t>(longest), 'B');
    EXPECT_EQ(std::string(SimpleEndpointIPC::kMaxCommandLength, 'B') + " 22\nBegin 22\nStop 0\n",
              ServeThroughPipe(server, word + "\n" + hidden + "\nStop\n"));
    EXPECT_EQ("Stop;", server.mCalls);
  }
}

}  // namespace
}  // namespace KTN
