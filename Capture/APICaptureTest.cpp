// Tests of the capture input against the FakeVeldran card.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Capture/APICapture.h"
#include "Capture/FakeVeldran.h"
#include "Util/CapturedStderr.h"
#include "Util/FourCC.h"

namespace KTN {
namespace {

using Util::CapturedStderr;
using Util::FourCC;

std::string Calls(const FakeVeldran& card) {
  std::string text;
  for (const std::string& call : card.calls) text += call + ";";
  return text;
}

class APICaptureTest : public testing::Test {
 protected:
  void SetUp() override { mCard.Install(); }
  // A capture input initialised on the fake card, with the card's call list cleared.
  APICapture* Ready() {
    APICapture* capture = new APICapture;
    EXPECT_EQ(0, capture->Init());
    mCard.calls.clear();
    return capture;
  }
  FakeVeldran mCard;
};

TEST_F(APICaptureTest, InitRegistersTheCallback) {
  APICapture* capture = new APICapture;
  EXPECT_EQ(0, capture->Init());
  EXPECT_NE(nullptr, capture->mInput);
  EXPECT_EQ("SetCallback;", Calls(mCard));
  EXPECT_EQ(static_cast<IVeldranInputCallback*>(capture), mCard.callback);
  EXPECT_EQ(1, mCard.inputReferences);
  capture->Release();
}

TEST_F(APICaptureTest, UnregisterLetsTheCardGoOfItsReferenceOnce) {
  APICapture* capture = Ready();
  capture->Unregister();
  EXPECT_EQ("SetCallback(null);", Calls(mCard));
  EXPECT_EQ(nullptr, mCard.callback) << "the card holds no reference to it any more";
  EXPECT_EQ(1, mCard.inputReferences) << "the input stays until the last Release";
  mCard.calls.clear();
  capture->Unregister();  // again: nothing left to do
  EXPECT_EQ("", Calls(mCard));
  capture->Release();
  EXPECT_EQ(0, mCard.inputReferences);
}

TEST_F(APICaptureTest, NoCardYieldsTheIteratorsEndOfList) {
  mCard.devices = 0;
  APICapture* capture = new APICapture;
  CapturedStderr captured;
  EXPECT_EQ(kVeldranFalse, capture->Init());
  EXPECT_EQ("*** FindVeldranInput[#]: Iterator->Next returned 1 (0x1): Veldran hardware not found\n"
            "*** Init[#]: GetVeldranInput returned 1 (0x1)\n",
            captured.Text());
  EXPECT_EQ(nullptr, capture->mInput);
  capture->Release();
}

TEST_F(APICaptureTest, FailedCallbackRegistrationIsReported) {
  mCard.results["SetCallback"] = kVeldranFail;
  APICapture* capture = new APICapture;
  CapturedStderr captured;
  EXPECT_EQ(kVeldranFail, capture->Init());
  EXPECT_EQ("*** Init[#]: SetCallback returned -2147483646 (0x80000002)\n", captured.Text());
  capture->Release();
}

TEST_F(APICaptureTest, AudioWithSixChannelsIsRefusedEvenWithoutACard) {
  APICapture* capture = new APICapture;  // never initialised: no input
  CapturedStderr captured;
  EXPECT_EQ(22, capture->EnableAudioInMode(48000, 16, 6));
  EXPECT_EQ("*** EnableAudioInMode[#]: Invalid channel count 6\n", captured.Text());
  capture->Release();
}

TEST_F(APICaptureTest, AudioChannelCountsAndUnavailableInput) {
  APICapture* capture = Ready();
  for (unsigned channels : {2u, 8u, 16u}) EXPECT_EQ(0, capture->EnableAudioInMode(48000, 32, channels));
  EXPECT_EQ("EnableAudioInput;EnableAudioInput;EnableAudioInput;", Calls(mCard));
  capture->Release();
  APICapture* bare = new APICapture;
  CapturedStderr captured;
  EXPECT_EQ(22, bare->EnableAudioInMode(48000, 16, 2));
  EXPECT_EQ(22, bare->Start(nullptr, nullptr));
  EXPECT_EQ(22, bare->Stop());
  EXPECT_EQ(22, bare->Disable());
  EXPECT_EQ(22, bare->EnableVideoInMode(ktnModeNTSC, ktnFormat8BitYUV));
  EXPECT_EQ("*** EnableAudioInMode[#]: VeldranInput not available\n*** Start[#]: VeldranInput not available\n"
            "*** Stop[#]: VeldranInput not available\n*** Disable[#]: VeldranInput not available\n"
            "*** EnableVideoInMode[#]: VeldranInput not available\n",
            captured.Text());
  bare->Release();
}

TEST_F(APICaptureTest, ModeSupportedOnlyWithConversionIsRefused) {
  ASSERT_EQ(45, kUnsupportedModeStatus);
  mCard.support[{ktnModeNTSC, ktnFormat8BitYUV}] = ktnSupportWithConversion;
  APICapture* capture = Ready();
  CapturedStderr captured;
  EXPECT_EQ(kUnsupportedModeStatus, capture->EnableVideoInMode(ktnModeNTSC, ktnFormat8BitYUV));
  EXPECT_EQ("*** EnableVideoInMode[#]: Unsupported video mode 'ntsc', format ktnFormat8BitYUV\n", captured.Text());
  EXPECT_EQ("DoesSupportVideoMode;", Calls(mCard)) << "nothing enabled";
  capture->Release();
}

TEST_F(APICaptureTest, VideoIsEnabledWithDetectionAndAgainWithoutWhenTheCardCannotDetect) {
  APICapture* capture = Ready();
  EXPECT_EQ(0, capture->EnableVideoInMode(ktnModeHD1080p25, ktnFormat8BitYUV));
  EXPECT_EQ(std::vector<uint32_t>({1}), mCard.enableVideoFlags);
  mCard.enableVideoFlags.clear();
  mCard.results["EnableVideoInputDetect"] = kVeldranInvalidArg;
  EXPECT_EQ(0, capture->EnableVideoInMode(ktnModeHD1080p25, ktnFormat8BitYUV));
  EXPECT_EQ(std::vector<uint32_t>({1, 0}), mCard.enableVideoFlags);
  mCard.results["EnableVideoInput"] = kVeldranFail;
  CapturedStderr captured;
  EXPECT_EQ(kVeldranFail, capture->EnableVideoInMode(ktnModeHD1080p25, ktnFormat8BitYUV));
  EXPECT_EQ("*** EnableVideoInMode[#]: EnableVideoInput returned -2147483646 (0x80000002)\n", captured.Text());
  capture->Release();
}

// The field order of a mode comes from the mode the input lists; a mode it does not list
// has none, and says so.
TEST_F(APICaptureTest, FieldDominanceIsTheListedModesOwn) {
  mCard.modes = 3;
  APICapture* capture = Ready();
  uint32_t dominance = 0;
  EXPECT_EQ(0, capture->GetFieldDominance(VeldranCode("fk02"), &dominance));
  EXPECT_EQ(ktnLowerFieldFirst, dominance);
  CapturedStderr captured;
  dominance = 0;
  EXPECT_EQ(ENOENT, capture->GetFieldDominance(VeldranCode("fk03"), &dominance));
  EXPECT_EQ(0u, dominance);
  EXPECT_EQ("*** GetFieldDominance[#]: The input lists no display mode 'fk03'\n", captured.Text());
  EXPECT_EQ(0, mCard.liveModes) << "every mode listed is released";
  capture->Release();
}

TEST_F(APICaptureTest, FormatsForModeStopOnceTheArrayIsFull) {
  mCard.support[{ktnModePAL, ktnFormat8BitYUV}] = ktnSupportNone;
  mCard.support[{ktnModePAL, ktnFormat10BitYUV}] = ktnSupportNative;
  mCard.support[{ktnModePAL, ktnFormat10BitRGB}] = ktnSupportNative;
  APICapture* capture = Ready();
  unsigned formats[3] = {0, 0, 0};
  unsigned len = 1;
  EXPECT_EQ(0, capture->GetSupportedFormatsForMode(ktnModePAL, formats, &len));
  EXPECT_EQ(1u, len);
  EXPECT_EQ(ktnFormat10BitYUV, formats[0]);
  EXPECT_EQ("DoesSupportVideoMode;DoesSupportVideoMode;", Calls(mCard)) << "r210 was never probed";
  len = 3;
  EXPECT_EQ(0, capture->GetSupportedFormatsForMode(ktnModePAL, formats, &len));
  EXPECT_EQ(2u, len);
  EXPECT_EQ(ktnFormat10BitRGB, formats[1]);
  capture->Release();
}

TEST_F(APICaptureTest, FormatsForModeReportProbeFailuresAndBadArguments) {
  APICapture* capture = Ready();
  unsigned formats[3];
  unsigned len = 0;
  CapturedStderr captured;
  EXPECT_EQ(22, capture->GetSupportedFormatsForMode(ktnModePAL, formats, &len));
  EXPECT_EQ(22, capture->GetSupportedFormatsForMode(ktnModePAL, nullptr, &len));
  mCard.results["DoesSupportVideoMode"] = kVeldranFail;
  len = 3;
  EXPECT_EQ(kVeldranFail, capture->GetSupportedFormatsForMode(ktnModePAL, formats, &len));
  EXPECT_EQ(3u, len) << "untouched on failure";
  std::string text = captured.Text();
  EXPECT_NE(std::string::npos, text.find("*** GetSupportedFormatsForMode[#]: Zero-length array provided\n"));
  EXPECT_NE(std::string::npos, text.find("*** GetSupportedFormatsForMode[#]: Invalid arguments: formats (nil), len 0x"))
      << text;
  EXPECT_NE(std::string::npos,
            text.find("*** GetSupportedFormatsForMode[#]: DoesSupportVideoMode returned -2147483646 (0x80000002)\n"));
  capture->Release();
}

TEST_F(APICaptureTest, ModesFillAtMostTheRoomGiven) {
  APICapture* capture = Ready();
  IVeldranDisplayMode* modes[20] = {};
  unsigned len = 3;
  EXPECT_EQ(0, capture->GetSupportedModes(modes, &len));
  ASSERT_EQ(3u, len);
  // The card's first three modes, in its order ('fk00', 'fk01', 'fk02'), and nothing beyond.
  for (unsigned i = 0; i < len; ++i) {
    ASSERT_NE(nullptr, modes[i]) << i;
    EXPECT_EQ(FourCC("fk00") + i, modes[i]->GetDisplayMode()) << i;
  }
  EXPECT_EQ(nullptr, modes[3]) << "no room was given for a fourth";
  for (unsigned i = 0; i < len; ++i) modes[i]->Release();
  len = 20;
  EXPECT_EQ(0, capture->GetSupportedModes(modes, &len));
  ASSERT_EQ(10u, len);
  for (unsigned i = 0; i < len; ++i) EXPECT_EQ(FourCC("fk00") + i, modes[i]->GetDisplayMode()) << i;
  EXPECT_EQ(nullptr, modes[10]);
  for (unsigned i = 0; i < len; ++i) modes[i]->Release();
  CapturedStderr captured;
  len = 0;
  EXPECT_EQ(22, capture->GetSupportedModes(modes, &len));
  EXPECT_EQ("*** GetSupportedModes[#]: Zero-length array provided\n", captured.Text());
  capture->Release();
}

TEST_F(APICaptureTest, DisableGoesOnPastAVideoFailureAndAnswersForAudio) {
  APICapture* capture = Ready();
  mCard.results["DisableVideoInput"] = kVeldranFail;
  CapturedStderr captured;
  EXPECT_EQ(0, capture->Disable());
  EXPECT_EQ("*** Disable[#]: DisableVideoInput returned -2147483646 (0x80000002)\n", captured.Text());
  EXPECT_EQ("DisableVideoInput;DisableAudioInput;", Calls(mCard));
  mCard.results.clear();
  mCard.results["DisableAudioInput"] = kVeldranBusy;
  CapturedStderr again;
  EXPECT_EQ(kVeldranBusy, capture->Disable());
  again.Text();
  mCard.results.clear();
  capture->Release();
}

struct Delivery {
  int frames = 0;
  void* context = nullptr;
};

void CountFrame(void* context, IVeldranVideoInputFrame*, IVeldranAudioInputPacket*) {
  Delivery* delivery = static_cast<Delivery*>(context);
  ++delivery->frames;
  delivery->context = context;
}

TEST_F(APICaptureTest, FramesReachTheCallbackOnlyBetweenStartAndStop) {
  APICapture* capture = Ready();
  Delivery delivery;
  mCard.DeliverFrame(nullptr, nullptr);
  EXPECT_EQ(0, delivery.frames);
  mCard.results["StartStreams"] = kVeldranFail;
  CapturedStderr captured;
  EXPECT_EQ(kVeldranFail, capture->Start(CountFrame, &delivery));
  captured.Text();
  mCard.DeliverFrame(nullptr, nullptr);
  EXPECT_EQ(0, delivery.frames) << "a failed start stores no callback";
  mCard.results.clear();
  EXPECT_EQ(0, capture->Start(CountFrame, &delivery));
  mCard.DeliverFrame(nullptr, nullptr);
  EXPECT_EQ(1, delivery.frames);
  EXPECT_EQ(&delivery, delivery.context);
  mCard.results["StopStreams"] = kVeldranFail;
  CapturedStderr again;
  EXPECT_EQ(kVeldranFail, capture->Stop());
  again.Text();
  mCard.DeliverFrame(nullptr, nullptr);
  EXPECT_EQ(2, delivery.frames) << "after a failed stop frames keep flowing";
  mCard.results.clear();
  EXPECT_EQ(0, capture->Stop());
  mCard.DeliverFrame(nullptr, nullptr);
  EXPECT_EQ(2, delivery.frames);
  capture->Release();
}

TEST_F(APICaptureTest, CallbackInterfaceAnswers) {
  APICapture* capture = Ready();
  IVeldranInputCallback* callback = capture;
  void* out = reinterpret_cast<void*>(1);
  EXPECT_EQ(kVeldranNotImplemented, callback->QueryInterface(IID_IVeldranInput, &out));
  EXPECT_EQ(0, callback->VideoInputFormatChanged(1, nullptr, 0));
  EXPECT_EQ(0, callback->VideoInputFrameArrived(nullptr, nullptr));
  EXPECT_EQ(2, callback->AddRef());
  EXPECT_EQ(1, callback->Release());
  capture->Release();
}

TEST_F(APICaptureTest, LastReleaseStopsDisablesUnregistersAndReleasesTheInput) {
  APICapture* capture = Ready();
  EXPECT_EQ(1, mCard.inputReferences);
  mCard.results["StopStreams"] = kVeldranFail;  // teardown goes on past failures
  CapturedStderr captured;
  EXPECT_EQ(0, capture->Release());
  EXPECT_EQ("*** ~APICapture[#]: StopStreams returned -2147483646 (0x80000002)\n", captured.Text());
  EXPECT_EQ("StopStreams;DisableVideoInput;DisableAudioInput;SetCallback(null);", Calls(mCard));
  EXPECT_EQ(nullptr, mCard.callback);
  EXPECT_EQ(0, mCard.inputReferences);
}

TEST_F(APICaptureTest, ReleasingAnUninitialisedObjectCallsNothing) {
  APICapture* capture = new APICapture;
  EXPECT_EQ(0, capture->Release());
  EXPECT_EQ("", Calls(mCard));
}

}  // namespace
}  // namespace KTN
