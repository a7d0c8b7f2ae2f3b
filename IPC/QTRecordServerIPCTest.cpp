// Tests of the server's command dispatch and loop.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "IPC/QTRecordServerIPC.h"
#include "IPC/TestStreams.h"
#include "Util/CapturedStderr.h"

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
  long SetFilePath(const char* path) override { mPath = path; return 0; }
  long Prepare() override { mCalls += "Prepare;"; return 0; }
  long MapVideo(unsigned long long size) override { mVideoSize = size; return 7; }
  long MapAudio(unsigned long long size) override { mAudioSize = size; return 0; }
  long Stop() override { mCalls += "Stop;"; return 0; }
  long InputEnded() override { return 0; }

  int Width() const { return mVideoWidth; }
  long long Duration() const { return mVideoDuration; }
  int CodecType() const { return mVideoCodecType; }

  std::string mCalls;
  std::string mPath;
  bool mVideoEnabled = false;
  bool mAudioEnabled = false;
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
  EXPECT_EQ("/Volumes/My Disk/clip.mov", server.mPath);
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

}  // namespace
}  // namespace KTN
