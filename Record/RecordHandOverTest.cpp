// Unit tests of the hand-over's answers and of the holders on the frame's road, without a card or a server.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "DeviceAPI/VeldranObject.h"
#include "IPC/RecorderCommands.h"
#include "Record/CapPriv.h"
#include "Record/FakeDeviceFrames.h"
#include "Record/RecordHandOver.h"
#include "Record/RecordTake.h"
#include "Settings/CaptureSettings.h"
#include "Util/CapturedStderr.h"

namespace KTN {
namespace {

struct Reports {
  std::vector<std::string> texts;
  std::vector<int64_t> counts;
};
Reports sReports;

int32_t KeepReport(int64_t, const char* text, int64_t count) {
  sReports.texts.push_back(text ? text : "(none)");
  sReports.counts.push_back(count);
  return 0;
}

// An instance recording HD 720p 50 (the ordinary report counts pairs there) whose host
// wants to hear of dropped frames, with a picture's hand-over waiting for its answer.
class HandOverAnswerTest : public testing::Test {
 protected:
  void SetUp() override {
    sReports = Reports();
    mInstance.settings = SignedCaptureSettings(7, 0, 2, 16, 48000);
    mInstance.statusFunc = KeepReport;
    mInstance.reportDroppedFrames = true;
    mFrame = new FakeVideoInputFrame(1280, 720, 0x80);
    mFrame->AddRef();
    Pending(cmdMapVideo);
  }
  void TearDown() override { mFrame->Release(); }
  // Makes the pending hand-over command's, holding one reference the caller added to mFrame.
  void Pending(const char* command) {
    mInstance.pending.command = command;
    mInstance.pending.item = VeldranRef<IVeldranUnknown>(VeldranRef<IVeldranVideoInputFrame>(mFrame));
    mInstance.pending.slotCount = 1;
  }

  CapPriv mInstance;
  FakeVideoInputFrame* mFrame = nullptr;
};

// MapVideo answered 7: the server has dropped frames. That is no failure: the hand-over is
// over, and the take's next report is the dropped-frames warning (its count not halved).
TEST_F(HandOverAnswerTest, MapVideosAnswer7IsTheDroppedFramesWarning) {
  EXPECT_EQ(0, SettleHandOver(&mInstance, kDroppedFramesStatus));
  EXPECT_TRUE(mInstance.droppedFrames);
  EXPECT_EQ(nullptr, mInstance.pending.command) << "the hand-over is over";
  EXPECT_EQ(1, mFrame->References()) << "its picture is released";
  EXPECT_EQ(rmNoErr, ReportTake(&mInstance, 9));
  ASSERT_EQ(1u, sReports.texts.size());
  EXPECT_EQ("Recording to disk (WARNING: Dropped frames detected)", sReports.texts[0]);
  EXPECT_EQ(9, sReports.counts[0]);
  mInstance.abortOnDroppedFrames = true;
  EXPECT_EQ(rmAborted, ReportTake(&mInstance, 9)) << "a host that asked to abort on dropped frames";
}

// The same answer to any other command is its failure; MapVideo's 0 is an ordinary
// hand-over, and the report stays the ordinary one.
TEST_F(HandOverAnswerTest, Answer7IsDroppedFramesOnlyFromMapVideo) {
  Util::CapturedStderr captured;
  mInstance.pending.command = cmdMapAudio;
  EXPECT_EQ(kDroppedFramesStatus, SettleHandOver(&mInstance, kDroppedFramesStatus));
  EXPECT_NE(std::string::npos, captured.Text().find("MapAudio returned 7")) << captured.Text();
  EXPECT_FALSE(mInstance.droppedFrames);
  EXPECT_EQ(1, mFrame->References()) << "a failed hand-over's item is released too";
  mFrame->AddRef();
  Pending(cmdMapVideo);
  EXPECT_EQ(0, SettleHandOver(&mInstance, 0));
  EXPECT_FALSE(mInstance.droppedFrames);
  EXPECT_EQ(rmNoErr, ReportTake(&mInstance, 9));
  ASSERT_EQ(1u, sReports.texts.size());
  EXPECT_EQ("Recording to disk", sReports.texts[0]);
  EXPECT_EQ(4, sReports.counts[0]) << "pairs above 30 frames a second";
}

// A holder keeps one reference: moving it, even to the interface it derives from, passes
// that one on; leaving hands it to the caller; going releases it.
TEST(VeldranRefTest, HoldsOneReferenceAndPassesItOn) {
  FakeVideoInputFrame* frame = new FakeVideoInputFrame(720, 576, 0x80);  // the test's reference
  frame->AddRef();
  {
    VeldranRef<IVeldranVideoInputFrame> held(frame);
    EXPECT_EQ(2, frame->References());
    VeldranRef<IVeldranUnknown> moved(std::move(held));
    EXPECT_FALSE(held);
    EXPECT_TRUE(moved);
    EXPECT_EQ(2, frame->References());
    IVeldranUnknown* left = moved.Leave();
    EXPECT_FALSE(moved);
    EXPECT_EQ(2, frame->References()) << "leaving releases nothing";
    VeldranRef<IVeldranUnknown> again(left);
    again = VeldranRef<IVeldranUnknown>();
    EXPECT_EQ(1, frame->References()) << "given an empty holder, it released what it held";
    frame->AddRef();
    again.Reset(frame);
  }
  EXPECT_EQ(1, frame->References()) << "going, it released what it held";
  frame->Release();
}

}  // namespace
}  // namespace KTN
