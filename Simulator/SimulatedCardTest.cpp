// Tests of the simulated card through its library, as a host would load it: cadence, byte
// layouts, timecodes, deck control, hardware flags, failure injection and scripted signal
// faults. Everything is judged from the frames' own timestamps and counts, never from the
// wall clock.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <algorithm>
#include <initializer_list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Capture/APICapture.h"
#include "Capture/VeldranAPILoader.h"
#include "Simulator/SimulatedCardLoader.h"
#include "Simulator/SimulatedModes.h"
#include "Simulator/TestSignal.h"
#include "Util/CapturedStderr.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

// The simulated card's library with the given settings (unlisted ones at their defaults;
// the speed defaults to as fast as possible here, so tests run in no time).
class SimulatedCard {
 public:
  SimulatedCard(std::initializer_list<SimulatedCardSetting> settings = {}) {
    mEntryPoints = UseSimulatedCard(SIMULATED_CARD_BUNDLE, settings);
    IVeldranIterator* iterator = mEntryPoints.createIterator();
    if (iterator->Next(&mDevice) == kVeldranOK) {
      void* out = nullptr;
      mDevice->QueryInterface(IID_IVeldranInput, &out);
      mInput = static_cast<IVeldranInput*>(out);
      mDevice->QueryInterface(IID_IVeldranDeviceControl, &out);
      mControl = static_cast<IVeldranDeviceControl*>(out);
    }
    iterator->Release();
  }
  SimulatedCard(const SimulatedCard&) = delete;
  SimulatedCard& operator=(const SimulatedCard&) = delete;
  ~SimulatedCard() {
    if (mInput) mInput->Release();
    if (mControl) mControl->Release();
    if (mDevice) mDevice->Release();
  }
  IVeldranInput* Input() { return mInput; }
  IVeldranDeviceControl* Control() { return mControl; }
  const VeldranEntryPoints& EntryPoints() { return mEntryPoints; }

 private:
  VeldranEntryPoints mEntryPoints;
  IVeldran* mDevice = nullptr;
  IVeldranInput* mInput = nullptr;
  IVeldranDeviceControl* mControl = nullptr;
};

// What one delivered frame said about itself.
struct Seen {
  int64_t frameTime = 0;
  int64_t frameDuration = 0;
  int sampleFrames = -1;
  int64_t packetTime = -1;
  std::string timecode;
  uint32_t timecodeBCD = 0;
  uint32_t timecodeFlags = 0;
  std::vector<uint8_t> picture;  // kept for the first frames only
  std::vector<uint8_t> sound;
};

// An input callback that records the first `wanted` frames, then ignores the rest.
class FrameCollector : public IVeldranInputCallback {
 public:
  FrameCollector(int wanted, int64_t timeScale, int keepPictures)
      : mWanted(wanted), mTimeScale(timeScale), mKeepPictures(keepPictures) {}
  VeldranResult QueryInterface(VeldranIID, void**) override { return kVeldranNoInterface; }
  int32_t AddRef() override { return 2; }   // lives on the test's stack
  int32_t Release() override { return 1; }
  VeldranResult VideoInputFormatChanged(uint32_t, IVeldranDisplayMode*, uint32_t) override { return kVeldranOK; }
  VeldranResult VideoInputFrameArrived(IVeldranVideoInputFrame* video, IVeldranAudioInputPacket* audio) override {
    std::lock_guard<std::mutex> guard(mLock);
    if (static_cast<int>(mSeen.size()) >= mWanted) return kVeldranOK;
    Seen seen;
    if (video) {
      video->GetStreamTime(&seen.frameTime, &seen.frameDuration, mTimeScale);
      IVeldranTimecode* timecode = nullptr;
      if (video->GetTimecode(ktnTimecodeRP188, &timecode) == kVeldranOK ||
          video->GetTimecode(ktnTimecodeVITC, &timecode) == kVeldranOK) {
        char* text = nullptr;
        timecode->GetString(&text);
        seen.timecode = text;
        free(text);
        seen.timecodeBCD = timecode->GetBCD();
        seen.timecodeFlags = timecode->GetFlags();
        timecode->Release();
      }
      if (static_cast<int>(mSeen.size()) < mKeepPictures) {
        void* bytes = nullptr;
        video->GetBytes(&bytes);
        size_t size = static_cast<size_t>(video->GetRowBytes()) * static_cast<size_t>(video->GetHeight());
        seen.picture.assign(static_cast<uint8_t*>(bytes), static_cast<uint8_t*>(bytes) + size);
      }
    }
    if (audio) {
      seen.sampleFrames = audio->GetSampleFrameCount();
      audio->GetPacketTime(&seen.packetTime, 48000);
      void* bytes = nullptr;
      if (static_cast<int>(mSeen.size()) < mKeepPictures && audio->GetBytes(&bytes) == kVeldranOK) {
        seen.sound.assign(static_cast<uint8_t*>(bytes), static_cast<uint8_t*>(bytes) + seen.sampleFrames * mSoundFrameBytes);
      }
    }
    mSeen.push_back(std::move(seen));
    if (static_cast<int>(mSeen.size()) == mWanted) mDone.notify_all();
    return kVeldranOK;
  }
  // Waits (at most a minute, a bound for a broken card) for the wanted frames.
  std::vector<Seen> Wait() {
    std::unique_lock<std::mutex> guard(mLock);
    mDone.wait_for(guard, std::chrono::seconds(60), [this] { return static_cast<int>(mSeen.size()) >= mWanted; });
    return mSeen;
  }
  int mSoundFrameBytes = 4;

 private:
  int mWanted;
  int64_t mTimeScale;
  int mKeepPictures;
  std::mutex mLock;
  std::condition_variable mDone;
  std::vector<Seen> mSeen;
};

struct ModeCase {
  uint32_t mode;
  int width;
  int height;
  int64_t duration;
  int64_t scale;
};

const ModeCase kModes[] = {
    {ktnModeNTSC, 720, 486, 1001, 30000},          {ktnModeNTSC2398, 720, 486, 1001, 24000},
    {ktnModePAL, 720, 576, 1000, 25000},           {ktnModeHD1080p2398, 1920, 1080, 1001, 24000},
    {ktnModeHD1080p24, 1920, 1080, 1000, 24000},   {ktnModeHD1080p25, 1920, 1080, 1000, 25000},
    {ktnModeHD1080p2997, 1920, 1080, 1001, 30000}, {ktnModeHD1080p30, 1920, 1080, 1000, 30000},
    {ktnModeHD1080p50, 1920, 1080, 1000, 50000},   {ktnModeHD1080p2398Pulldown, 1920, 1080, 1001, 24000},
    {ktnMode3DHD1080p2398, 1920, 1080, 1001, 24000}, {ktnMode3DHD1080p24, 1920, 1080, 1000, 24000},
    {ktnModeHD1080p5994, 1920, 1080, 1001, 60000}, {ktnModeHD1080p6000, 1920, 1080, 1000, 60000},
    {ktnModeHD1080i50, 1920, 1080, 1000, 25000},   {ktnModeHD1080i5994, 1920, 1080, 1001, 30000},
    {ktnModeHD1080i6000, 1920, 1080, 1000, 30000}, {ktnModeHD720p50, 1280, 720, 1000, 50000},
    {ktnModeHD720p5994, 1280, 720, 1001, 60000},   {ktnModeHD720p60, 1280, 720, 1000, 60000},
    {ktnMode2k2398, 2048, 1556, 1001, 24000},      {ktnMode2k24, 2048, 1556, 1000, 24000},
    {ktnMode2k25, 2048, 1556, 1000, 25000},        {ktnMode2kDCI2398, 2048, 1080, 1001, 24000},
    {ktnMode2kDCI24, 2048, 1080, 1000, 24000},
};

// Records `frames` frames of mode in pixelFormat with 2-channel 16-bit sound.
std::vector<Seen> Record(SimulatedCard& card, uint32_t mode, int64_t scale, uint32_t pixelFormat, int frames,
                         int keepPictures, int channels = 2, int bits = 16) {
  FrameCollector collector(frames, scale, keepPictures);
  collector.mSoundFrameBytes = channels * bits / 8;
  IVeldranInput* input = card.Input();
  EXPECT_EQ(kVeldranOK, input->EnableVideoInput(mode, pixelFormat, ktnInputFlagDefault));
  EXPECT_EQ(kVeldranOK, input->EnableAudioInput(48000, static_cast<uint32_t>(bits), static_cast<uint32_t>(channels)));
  EXPECT_EQ(kVeldranOK, input->SetCallback(&collector));
  EXPECT_EQ(kVeldranOK, input->StartStreams());
  std::vector<Seen> seen = collector.Wait();
  EXPECT_EQ(kVeldranOK, input->StopStreams());
  EXPECT_EQ(kVeldranOK, input->SetCallback(nullptr));
  EXPECT_EQ(kVeldranOK, input->DisableVideoInput());
  EXPECT_EQ(kVeldranOK, input->DisableAudioInput());
  return seen;
}

TEST(SimulatedCardTest, TwentyFiveModesWithTheirSizesAndRates) {
  SimulatedCard card;
  IVeldranDisplayModeIterator* iterator = nullptr;
  ASSERT_EQ(kVeldranOK, card.Input()->GetDisplayModeIterator(&iterator));
  size_t index = 0;
  IVeldranDisplayMode* mode = nullptr;
  while (iterator->Next(&mode) == kVeldranOK) {
    ASSERT_LT(index, 25u);
    const ModeCase& expected = kModes[index++];
    EXPECT_EQ(expected.mode, mode->GetDisplayMode());
    EXPECT_EQ(expected.width, mode->GetWidth());
    EXPECT_EQ(expected.height, mode->GetHeight());
    int64_t duration = 0, scale = 0;
    mode->GetFrameRate(&duration, &scale);
    EXPECT_EQ(expected.duration * 1000000 / expected.scale, duration * 1000000 / scale) << index;
    char* name = nullptr;
    EXPECT_EQ(kVeldranOK, mode->GetName(&name));
    EXPECT_NE(nullptr, name);
    free(name);
    mode->Release();
  }
  iterator->Release();
  EXPECT_EQ(25u, index);
}

TEST(SimulatedCardTest, CadenceOfFramesAndSoundAtEveryRate) {
  SimulatedCard card;
  for (const ModeCase& mode : kModes) {
    int frames = static_cast<int>(2 * mode.scale / mode.duration) + 1;  // two seconds and a frame
    std::vector<Seen> seen = Record(card, mode.mode, mode.scale, ktnFormat8BitYUV, frames, 0);
    ASSERT_EQ(static_cast<size_t>(frames), seen.size());
    int64_t samples = 0;
    for (int n = 0; n < frames; ++n) {
      EXPECT_EQ(n * mode.duration, seen[n].frameTime) << "mode " << mode.mode << " frame " << n;
      EXPECT_EQ(mode.duration, seen[n].frameDuration);
      EXPECT_EQ(samples, seen[n].packetTime) << "sound runs on without a gap";
      samples += seen[n].sampleFrames;
      // Each frame carries exactly its duration's sound, rounded: never drifting by a sample.
      double exact = (n + 1) * 48000.0 * mode.duration / mode.scale;
      EXPECT_LE(std::abs(samples - exact), 0.5 + 1e-9) << "mode " << mode.mode << " frame " << n;
    }
    if (mode.duration == 1000) {
      int perSecond = static_cast<int>(mode.scale / mode.duration);
      int64_t firstSecond = 0;
      for (int n = 0; n < perSecond; ++n) firstSecond += seen[n].sampleFrames;
      EXPECT_EQ(48000, firstSecond) << "mode " << mode.mode;
    }
  }
}

TEST(SimulatedCardTest, NtscSoundAlternates1602And1601) {
  SimulatedCard card;
  std::vector<Seen> seen = Record(card, ktnModeNTSC, 30000, ktnFormat8BitYUV, 1001, 0);
  ASSERT_EQ(1001u, seen.size());
  EXPECT_EQ(1602, seen[0].sampleFrames);
  EXPECT_EQ(1601, seen[1].sampleFrames);
  EXPECT_EQ(1602, seen[2].sampleFrames);
  EXPECT_EQ(1601, seen[3].sampleFrames);
  EXPECT_EQ(1602, seen[4].sampleFrames);
  int64_t total = 0;
  for (const Seen& frame : seen) total += frame.sampleFrames;
  // 1001 frames of 1001/30000 s are 33.40003 s: 1603201.6 samples, rounded.
  EXPECT_EQ(1603202, total);
}

// ---- Byte layouts, decoded here independently of the card's own code ----

struct YCbCr {
  int y, cb, cr;
};

// Published 75% colour bars: BT.709 10-bit (left to right), and BT.601 8-bit.
const YCbCr kBars709Ten[7] = {{721, 512, 512}, {674, 176, 543}, {581, 589, 176}, {534, 253, 207},
                              {251, 771, 817}, {204, 435, 848}, {111, 848, 481}};
const YCbCr kBars601Eight[7] = {{180, 128, 128}, {162, 44, 142}, {131, 156, 44}, {112, 72, 58},
                                {84, 184, 198},  {65, 100, 212}, {35, 212, 114}};
const int kBarsRGB[7][3] = {{767, 767, 767}, {767, 767, 0}, {0, 767, 767}, {0, 767, 0},
                            {767, 0, 767},   {767, 0, 0},   {0, 0, 767}};

// Even pixel x of a 2vuy row: Cb Y0 Cr Y1 bytes.
YCbCr Decode2vuy(const uint8_t* row, int x) {
  const uint8_t* pair = row + (x & ~1) * 2;
  return {pair[1 + (x & 1) * 2], pair[0], pair[2]};
}

// Pixel x (a multiple of 6) of a v210 row: word 0 holds Cb0, Y0 and Cr0 in bits 0, 10 and 20.
YCbCr DecodeV210(const uint8_t* row, int x) {
  const uint8_t* group = row + x / 6 * 16;
  uint32_t word = group[0] | group[1] << 8 | group[2] << 16 | static_cast<uint32_t>(group[3]) << 24;
  return {static_cast<int>((word >> 10) & 0x3ff), static_cast<int>(word & 0x3ff), static_cast<int>((word >> 20) & 0x3ff)};
}

void DecodeR210(const uint8_t* row, int x, int rgb[3]) {
  const uint8_t* p = row + x * 4;
  uint32_t word = static_cast<uint32_t>(p[0]) << 24 | p[1] << 16 | p[2] << 8 | p[3];
  rgb[0] = static_cast<int>((word >> 20) & 0x3ff);
  rgb[1] = static_cast<int>((word >> 10) & 0x3ff);
  rgb[2] = static_cast<int>(word & 0x3ff);
}

// The centre of bar i, rounded down to a multiple of 6 (a v210 group, a 2vuy pair).
int BarCentre(int width, int bar) {
  return (width * (2 * bar + 1) / 14) / 6 * 6;
}

TEST(SimulatedCardTest, TwoVuyRowsDecodeToBT601BarsAtStandardDefinition) {
  SimulatedCard card;
  std::vector<Seen> seen = Record(card, ktnModeNTSC, 30000, ktnFormat8BitYUV, 1, 1);
  ASSERT_EQ(1u, seen.size());
  ASSERT_EQ(720u * 2 * 486, seen[0].picture.size());
  for (int row : {0, 100, 300}) {
    for (int bar = 0; bar < 7; ++bar) {
      YCbCr got = Decode2vuy(&seen[0].picture[static_cast<size_t>(row) * 1440], BarCentre(720, bar));
      EXPECT_NEAR(kBars601Eight[bar].y, got.y, 1) << "bar " << bar;
      EXPECT_NEAR(kBars601Eight[bar].cb, got.cb, 1) << "bar " << bar;
      EXPECT_NEAR(kBars601Eight[bar].cr, got.cr, 1) << "bar " << bar;
    }
  }
}

TEST(SimulatedCardTest, V210RowsDecodeToBT709BarsInHD) {
  SimulatedCard card;
  std::vector<Seen> seen = Record(card, ktnModeHD1080p25, 25000, ktnFormat10BitYUV, 1, 1);
  ASSERT_EQ(1u, seen.size());
  ASSERT_EQ(5120u * 1080, seen[0].picture.size()) << "rows padded to 128 bytes";
  for (int bar = 0; bar < 7; ++bar) {
    YCbCr got = DecodeV210(&seen[0].picture[5120 * 10], BarCentre(1920, bar));
    EXPECT_EQ(kBars709Ten[bar].y, got.y) << "bar " << bar;
    EXPECT_EQ(kBars709Ten[bar].cb, got.cb) << "bar " << bar;
    EXPECT_EQ(kBars709Ten[bar].cr, got.cr) << "bar " << bar;
  }
}

TEST(SimulatedCardTest, R210RowsDecodeToBarsIn2K) {
  SimulatedCard card;
  std::vector<Seen> seen = Record(card, ktnMode2k24, 24000, ktnFormat10BitRGB, 1, 1);
  ASSERT_EQ(1u, seen.size());
  ASSERT_EQ(8192u * 1556, seen[0].picture.size());
  for (int bar = 0; bar < 7; ++bar) {
    int rgb[3];
    DecodeR210(&seen[0].picture[8192 * 500], BarCentre(2048, bar), rgb);
    for (int c = 0; c < 3; ++c) EXPECT_EQ(kBarsRGB[bar][c], rgb[c]) << "bar " << bar << " component " << c;
  }
  // Rows of 720 pixels are padded to 768 (3072 bytes), the padding zero.
  std::vector<Seen> sd = Record(card, ktnModePAL, 25000, ktnFormat10BitRGB, 1, 1);
  ASSERT_EQ(3072u * 576, sd[0].picture.size());
  EXPECT_EQ(0, sd[0].picture[3072 - 1]);
}

TEST(SimulatedCardTest, EveryFrameDiffersFromItsNeighbours) {
  SimulatedCard card;
  std::vector<Seen> seen = Record(card, ktnModePAL, 25000, ktnFormat8BitYUV, 4, 4);
  ASSERT_EQ(4u, seen.size());
  size_t barBytes = static_cast<size_t>(1440) * (576 * 2 / 3);
  for (int n = 0; n + 1 < 4; ++n) {
    EXPECT_NE(seen[n].picture, seen[n + 1].picture) << n;
    EXPECT_TRUE(std::equal(seen[n].picture.begin(), seen[n].picture.begin() + barBytes, seen[n + 1].picture.begin()))
        << "the bars stay where they are";
  }
}

// The ring's buffers serve picture after picture: a buffer used again holds exactly the
// new picture (the card paints only what changed over what it held).
TEST(SimulatedCardTest, ReusedBuffersHoldTheWholeNewPicture) {
  SimulatedCard card;
  constexpr int kFrames = 150;  // more than twice the ring of PAL
  std::vector<Seen> seen = Record(card, ktnModePAL, 25000, ktnFormat10BitYUV, kFrames, kFrames);
  ASSERT_EQ(static_cast<size_t>(kFrames), seen.size());
  const Sim::SimulatedMode* mode = Sim::FindSimulatedMode(ktnModePAL);
  ASSERT_NE(nullptr, mode);
  Sim::TestSignal signal(*mode, ktnFormat10BitYUV);
  std::vector<uint8_t> expected(signal.FrameBytes());
  for (const Seen& frame : seen) {
    int64_t n = frame.frameTime / 1000;
    signal.Render(n, expected.data());
    ASSERT_TRUE(frame.picture == expected) << "picture " << n;
  }
}

TEST(SimulatedCardTest, SoundIsATonePerChannelAtMinus20dBFS) {
  SimulatedCard card;
  std::vector<Seen> seen = Record(card, ktnModePAL, 25000, ktnFormat8BitYUV, 2, 2, 16, 32);
  ASSERT_EQ(2u, seen.size());
  ASSERT_EQ(1920u * 16 * 4, seen[0].sound.size());
  const double fullScale = 2147483647.0;
  for (int channel = 0; channel < 16; ++channel) {
    for (int i : {0, 1, 7, 1919}) {
      int32_t sample;
      memcpy(&sample, &seen[0].sound[(static_cast<size_t>(i) * 16 + channel) * 4], 4);
      double expected = 0.1 * sin(2 * M_PI * (channel + 1) * 1000.0 * i / 48000.0);
      EXPECT_NEAR(expected, sample / fullScale, 1e-6) << "channel " << channel << " sample " << i;
    }
    // The next packet goes on where this one ended.
    int32_t first;
    memcpy(&first, &seen[1].sound[static_cast<size_t>(channel) * 4], 4);
    EXPECT_NEAR(0.1 * sin(2 * M_PI * (channel + 1) * 1000.0 * 1920 / 48000.0), first / fullScale, 1e-6);
  }
}

// ---- Timecode ----

TEST(SimulatedCardTest, TimecodeRunsFromTheStartAndDropsFramesAt2997) {
  SimulatedCard card;
  std::vector<Seen> seen = Record(card, ktnModeNTSC, 30000, ktnFormat8BitYUV, 1802, 0);
  ASSERT_EQ(1802u, seen.size());
  EXPECT_EQ("01:00:00;00", seen[0].timecode);
  EXPECT_EQ(0x01000000u, seen[0].timecodeBCD);
  EXPECT_EQ(static_cast<uint32_t>(ktnTimecodeFlagDropFrame), seen[0].timecodeFlags);
  EXPECT_EQ("01:00:00;29", seen[29].timecode);
  EXPECT_EQ("01:00:59;29", seen[1799].timecode);
  EXPECT_EQ("01:01:00;02", seen[1800].timecode) << "frames 00 and 01 of the minute are dropped";
  EXPECT_EQ("01:01:00;03", seen[1801].timecode);
}

TEST(SimulatedCardTest, TimecodeDropsFourFramesAt5994) {
  SimulatedCard card;
  std::vector<Seen> seen = Record(card, ktnModeHD720p5994, 60000, ktnFormat8BitYUV, 3601, 0);
  ASSERT_EQ(3601u, seen.size());
  EXPECT_EQ("01:00:59;59", seen[3599].timecode);
  EXPECT_EQ("01:01:00;04", seen[3600].timecode);
}

TEST(SimulatedCardTest, NonDropTimecodeFromAChosenStartWrapsAtMidnight) {
  SimulatedCard card({{"VELDRAN_SIM_TIMECODE_START", "23:59:59:23"}});
  std::vector<Seen> seen = Record(card, ktnModeHD1080p25, 25000, ktnFormat8BitYUV, 3, 0);
  EXPECT_EQ("23:59:59:23", seen[0].timecode);
  EXPECT_EQ(0u, seen[0].timecodeFlags);
  EXPECT_EQ("23:59:59:24", seen[1].timecode);
  EXPECT_EQ("00:00:00:00", seen[2].timecode);
}

TEST(SimulatedCardTest, VitcOrNoTimecodeOnRequest) {
  {
    SimulatedCard card({{"VELDRAN_SIM_TIMECODE", "vitc"}});
    std::vector<Seen> seen = Record(card, ktnModePAL, 25000, ktnFormat8BitYUV, 2, 0);
    EXPECT_EQ("01:00:00:01", seen[1].timecode) << "found as VITC after RP188 was refused";
  }
  {
    SimulatedCard card({{"VELDRAN_SIM_TIMECODE", "none"}});
    std::vector<Seen> seen = Record(card, ktnModePAL, 25000, ktnFormat8BitYUV, 2, 0);
    EXPECT_EQ("", seen[1].timecode);
  }
}

// ---- Device control ----

TEST(SimulatedCardTest, WithoutADeckReadinessIsNotReady) {
  SimulatedCard card;
  EXPECT_EQ(kVeldranFalse, card.Control()->GetReadiness());
  EXPECT_EQ(kVeldranNotFound, card.Control()->Play());
}

TEST(SimulatedCardTest, DeckStartCheckAcceptsTheFirstFrameAtTheCuePoint) {
  SimulatedCard card({{"VELDRAN_SIM_DECK", "1"}, {"VELDRAN_SIM_CUE", "01:00:00:05"}});
  EXPECT_EQ(kVeldranOK, card.Control()->GetReadiness());
  struct StartChecker : IVeldranInputCallback {
    IVeldranDeviceControl* control;
    std::vector<VeldranResult> answers;
    std::mutex lock;
    VeldranResult QueryInterface(VeldranIID, void**) override { return kVeldranNoInterface; }
    int32_t AddRef() override { return 2; }
    int32_t Release() override { return 1; }
    VeldranResult VideoInputFormatChanged(uint32_t, IVeldranDisplayMode*, uint32_t) override { return 0; }
    VeldranResult VideoInputFrameArrived(IVeldranVideoInputFrame* video, IVeldranAudioInputPacket*) override {
      std::lock_guard<std::mutex> guard(lock);
      if (answers.size() < 8) answers.push_back(control->CheckStart(video));
      return 0;
    }
  } checker;
  checker.control = card.Control();
  ASSERT_EQ(kVeldranOK, card.Input()->EnableVideoInput(ktnModePAL, ktnFormat8BitYUV, 0));
  ASSERT_EQ(kVeldranOK, card.Input()->SetCallback(&checker));
  ASSERT_EQ(kVeldranOK, card.Input()->StartStreams());
  for (int i = 0; i < 200; ++i) {
    {
      std::lock_guard<std::mutex> guard(checker.lock);
      if (checker.answers.size() >= 8) break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ASSERT_EQ(kVeldranOK, card.Input()->StopStreams());
  card.Input()->SetCallback(nullptr);
  std::vector<VeldranResult> expected = {1, 1, 1, 1, 1, 0, 0, 0};
  EXPECT_EQ(expected, checker.answers);
}

TEST(SimulatedCardTest, DisplayModeRecordsAndHardwareDescription) {
  SimulatedCard card({{"VELDRAN_SIM_HARDWARE_FLAGS", "0x41"}});
  VeldranDeviceModeRecord records[32];
  uint32_t count = 0;
  ASSERT_EQ(kVeldranOK, card.Control()->GetSupportedInputDisplayModes(records, sizeof records, &count));
  EXPECT_EQ(25u, count);
  EXPECT_EQ(720u, records[0].width);
  EXPECT_EQ(486u, records[0].height);
  EXPECT_EQ((30000u * 65536 + 500) / 1001, records[0].frameRate);
  EXPECT_EQ(25u << 16, records[2].frameRate);
  count = 0;
  ASSERT_EQ(kVeldranOK, card.Control()->GetSupportedInputDisplayModes(records, 3 * 16, &count));
  EXPECT_EQ(3u, count) << "no more than the buffer holds";
  VeldranHardwareDescription description;
  ASSERT_EQ(kVeldranOK, card.Control()->GetHardwareDescription(&description));
  EXPECT_EQ(0x41u, description.flags);
  EXPECT_EQ(0, card.Control()->SetCaptureGeometry(1920, 1080, 25, 1));
}

TEST(SimulatedCardTest, PixelFormatSupportFollowsTheHardwareFlags) {
  struct FlagCase {
    const char* flags;
    uint32_t mode;
    uint32_t format;
    uint32_t support;
  };
  const FlagCase cases[] = {
      {"1", ktnModeHD1080p25, ktnFormat8BitYUV, ktnSupportNative},
      {"1", ktnModeHD1080p25, ktnFormat10BitYUV, ktnSupportNative},
      {"1", ktnModeHD1080p25, ktnFormat10BitRGB, ktnSupportNative},
      {"0", ktnModeHD1080p25, ktnFormat10BitRGB, ktnSupportNone},
      {"64", ktnModeHD1080p25, ktnFormat10BitYUV, ktnSupportNone},
      {"64", ktnModePAL, ktnFormat10BitYUV, ktnSupportNative},
      {"1", ktnModeHD1080p25, ktnFormat8BitBGRA, ktnSupportWithConversion},
      {"1", ktnModeHD1080p25, ktnFormat8BitARGB, ktnSupportWithConversion},
      {"1", VeldranCode("xxxx"), ktnFormat8BitYUV, ktnSupportNone},
  };
  for (const FlagCase& c : cases) {
    SimulatedCard card({{"VELDRAN_SIM_HARDWARE_FLAGS", c.flags}});
    uint32_t support = 99;
    ASSERT_EQ(kVeldranOK, card.Input()->DoesSupportVideoMode(c.mode, c.format, 0, &support, nullptr));
    EXPECT_EQ(c.support, support) << c.flags << " " << c.format;
  }
}

// ---- Through the capture input, as the plug-in uses the card ----

TEST(SimulatedCardTest, FailureInjectionReachesTheCaptureInput) {
  SimulatedCard card({{"VELDRAN_SIM_FAIL", "StartStreams,EnableVideoInput=0x80000003"}});
  APICapture* capture = new APICapture;
  ASSERT_EQ(0, capture->Init());
  Util::CapturedStderr captured;
  EXPECT_EQ(kVeldranInvalidArg, capture->EnableVideoInMode(ktnModeHD1080p25, ktnFormat8BitYUV));
  EXPECT_EQ(kVeldranFail, capture->Start(nullptr, nullptr));
  EXPECT_EQ("*** EnableVideoInMode[#]: EnableVideoInput returned -2147483645 (0x80000003)\n"
            "*** Start[#]: StartStreams returned -2147483646 (0x80000002)\n",
            captured.Text());
  capture->Unregister();  // the card holds it as its callback until then
  capture->Release();
}

TEST(SimulatedCardTest, CardWithoutFormatDetectionIsEnabledOnTheSecondTry) {
  SimulatedCard card({{"VELDRAN_SIM_FORMAT_DETECTION", "0"}});
  APICapture* capture = new APICapture;
  ASSERT_EQ(0, capture->Init());
  EXPECT_EQ(0, capture->EnableVideoInMode(ktnModeHD1080p25, ktnFormat10BitYUV));
  unsigned formats[3];
  unsigned len = 3;
  EXPECT_EQ(0, capture->GetSupportedFormatsForMode(ktnModeHD1080p25, formats, &len));
  EXPECT_EQ(3u, len);
  capture->Unregister();  // the card holds it as its callback until then
  capture->Release();
}

TEST(SimulatedCardTest, NoCardMeansHardwareNotFound) {
  SimulatedCard card({{"VELDRAN_SIM_DEVICES", "0"}});
  EXPECT_EQ(nullptr, card.Input());
  APICapture* capture = new APICapture;
  Util::CapturedStderr captured;
  EXPECT_EQ(kVeldranFalse, capture->Init());
  EXPECT_NE(std::string::npos, captured.Text().find("Veldran hardware not found"));
  capture->Unregister();  // the card holds it as its callback until then
  capture->Release();
}

struct CaptureCount {
  std::atomic<int> frames{0};
  std::atomic<bool> inside{false};
};

void SlowFrameCallback(void* context, IVeldranVideoInputFrame*, IVeldranAudioInputPacket*) {
  CaptureCount* count = static_cast<CaptureCount*>(context);
  count->inside = true;
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  ++count->frames;
  count->inside = false;
}

TEST(SimulatedCardTest, StopReturnsOnlyWhenNoCallbackRuns) {
  SimulatedCard card;
  APICapture* capture = new APICapture;
  ASSERT_EQ(0, capture->Init());
  ASSERT_EQ(0, capture->EnableVideoInMode(ktnModePAL, ktnFormat8BitYUV));
  ASSERT_EQ(0, capture->EnableAudioInMode(48000, 16, 2));
  CaptureCount count;
  ASSERT_EQ(0, capture->Start(SlowFrameCallback, &count));
  while (count.frames < 3) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  ASSERT_EQ(0, capture->Stop());
  EXPECT_FALSE(count.inside) << "no callback is running after Stop";
  int stopped = count.frames;
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_EQ(stopped, count.frames) << "and none runs later";
  EXPECT_EQ(0, capture->Disable());
  capture->Unregister();  // the card holds it as its callback until then
  capture->Release();
}

TEST(SimulatedCardTest, PreviewCallbackReceivesFramesWhileStreaming) {
  SimulatedCard card;
  struct Preview : IVeldranScreenPreviewCallback {
    std::atomic<int> drawn{0};
    std::atomic<int> references{1};
    VeldranResult QueryInterface(VeldranIID, void**) override { return kVeldranNoInterface; }
    int32_t AddRef() override { return ++references; }
    int32_t Release() override { return --references; }
    VeldranResult DrawFrame(IVeldranVideoFrame* frame) override {
      if (frame && frame->GetWidth() == 720) ++drawn;
      return 0;
    }
  } preview;
  ASSERT_EQ(kVeldranOK, card.Input()->SetScreenPreviewCallback(&preview));
  ASSERT_EQ(kVeldranOK, card.Input()->EnableVideoInput(ktnModePAL, ktnFormat8BitYUV, 0));
  ASSERT_EQ(kVeldranOK, card.Input()->StartStreams());
  // Bounded for a broken card only: a loaded machine may take its time.
  for (int i = 0; i < 30000 && preview.drawn < 3; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(2));
  ASSERT_EQ(kVeldranOK, card.Input()->StopStreams());
  EXPECT_GE(preview.drawn, 3);
  ASSERT_EQ(kVeldranOK, card.Input()->SetScreenPreviewCallback(nullptr));
  EXPECT_EQ(1, preview.references) << "the card let go of the callback";
}

// A host that keeps every picture: once it holds the whole ring, the card has no buffer for
// the next picture and drops it at the source; the slot still comes, with its sound alone.
class FakePictureHoarder : public IVeldranInputCallback {
 public:
  VeldranResult QueryInterface(VeldranIID, void**) override { return kVeldranNoInterface; }
  int32_t AddRef() override { return 2; }
  int32_t Release() override { return 1; }
  VeldranResult VideoInputFormatChanged(uint32_t, IVeldranDisplayMode*, uint32_t) override { return kVeldranOK; }
  VeldranResult VideoInputFrameArrived(IVeldranVideoInputFrame* video, IVeldranAudioInputPacket* audio) override {
    std::lock_guard<std::mutex> guard(mLock);
    if (mSlots.size() >= kSlots) return kVeldranOK;
    Slot slot;
    slot.picture = video != nullptr;
    if (audio) audio->GetPacketTime(&slot.packetTime, 48000);
    if (video) {
      int64_t duration = 0;
      video->GetStreamTime(&slot.frameTime, &duration, 25000);
      // Holds it for good, until the test lets go of everything at once.
      if (mHolding) {
        video->AddRef();
        mHeld.push_back(video);
      }
    }
    mSlots.push_back(slot);
    if (!slot.picture && ++mDropped == 10) {
      // The host lets go: pictures must come again.
      for (IVeldranVideoInputFrame* frame : mHeld) frame->Release();
      mHeld.clear();
      mHolding = false;
    }
    if (mSlots.size() == kSlots) mDone.notify_all();
    return kVeldranOK;
  }
  struct Slot {
    bool picture = false;
    int64_t frameTime = -1;
    int64_t packetTime = -1;
  };
  std::vector<Slot> Wait() {
    std::unique_lock<std::mutex> guard(mLock);
    mDone.wait_for(guard, std::chrono::seconds(60), [this] { return mSlots.size() >= kSlots; });
    return mSlots;
  }
  static constexpr size_t kSlots = 120;

 private:
  std::mutex mLock;
  std::condition_variable mDone;
  std::vector<Slot> mSlots;
  std::vector<IVeldranVideoInputFrame*> mHeld;
  bool mHolding = true;
  int mDropped = 0;
};

TEST(SimulatedCardTest, AHostHoldingEveryBufferMakesTheCardDropPicturesNotSlots) {
  SimulatedCard card;
  IVeldranInput* input = card.Input();
  FakePictureHoarder host;
  ASSERT_EQ(kVeldranOK, input->EnableVideoInput(ktnModePAL, ktnFormat8BitYUV, ktnInputFlagDefault));
  ASSERT_EQ(kVeldranOK, input->EnableAudioInput(48000, 16, 2));
  ASSERT_EQ(kVeldranOK, input->SetCallback(&host));
  Util::CapturedStderr captured;
  ASSERT_EQ(kVeldranOK, input->StartStreams());
  std::vector<FakePictureHoarder::Slot> slots = host.Wait();
  ASSERT_EQ(kVeldranOK, input->StopStreams());
  ASSERT_EQ(kVeldranOK, input->SetCallback(nullptr));
  EXPECT_EQ(kVeldranOK, input->DisableVideoInput());
  ASSERT_EQ(FakePictureHoarder::kSlots, slots.size());
  // The ring: two and a half seconds of PAL pictures and four more, the preview holding one.
  constexpr size_t kRing = 63 + 4;
  size_t firstDrop = 0;
  while (firstDrop < slots.size() && slots[firstDrop].picture) ++firstDrop;
  EXPECT_GE(firstDrop, kRing - 2) << "the ring held about two and a half seconds of pictures";
  EXPECT_LE(firstDrop, kRing);
  int dropped = 0;
  for (size_t i = 0; i < slots.size(); ++i) {
    EXPECT_EQ(static_cast<int64_t>(i) * 1920, slots[i].packetTime) << "every slot brings its sound: slot " << i;
    if (slots[i].picture) {
      EXPECT_EQ(static_cast<int64_t>(i) * 1000, slots[i].frameTime) << "a picture keeps its slot's time";
    } else {
      ++dropped;
    }
  }
  EXPECT_EQ(10, dropped) << "once the host let go, pictures came again";
  EXPECT_TRUE(slots.back().picture);
  EXPECT_EQ("*** StopThreads[#]: Dropped 10 pictures: the host held all " + std::to_string(kRing) + " frame buffers\n",
            captured.Text());
}

// A machine too busy to let the card capture in time: the late pictures are lost, not
// delivered in a burst, and each of their slots still brings its sound.
TEST(SimulatedCardTest, LatePicturesAreDroppedAndTheirSoundStillComes) {
  SimulatedCard card({{"VELDRAN_SIM_SPEED", "1"}});
  struct Stall : IVeldranInputCallback {
    VeldranResult QueryInterface(VeldranIID, void**) override { return kVeldranNoInterface; }
    int32_t AddRef() override { return 2; }
    int32_t Release() override { return 1; }
    VeldranResult VideoInputFormatChanged(uint32_t, IVeldranDisplayMode*, uint32_t) override { return kVeldranOK; }
    VeldranResult VideoInputFrameArrived(IVeldranVideoInputFrame* video, IVeldranAudioInputPacket* audio) override {
      std::lock_guard<std::mutex> guard(lock);
      if (slots.size() >= 40) return kVeldranOK;
      int64_t frameTime = -1, duration = 0, packetTime = -1;
      if (video) video->GetStreamTime(&frameTime, &duration, 25000);
      if (audio) audio->GetPacketTime(&packetTime, 48000);
      slots.push_back({frameTime, packetTime});
      // The fifth frame takes the capture thread ten frame periods.
      if (slots.size() == 5) std::this_thread::sleep_for(std::chrono::milliseconds(400));
      if (slots.size() == 40) done.notify_all();
      return kVeldranOK;
    }
    std::mutex lock;
    std::condition_variable done;
    std::vector<std::pair<int64_t, int64_t>> slots;
  } host;
  IVeldranInput* input = card.Input();
  ASSERT_EQ(kVeldranOK, input->EnableVideoInput(ktnModePAL, ktnFormat8BitYUV, ktnInputFlagDefault));
  ASSERT_EQ(kVeldranOK, input->EnableAudioInput(48000, 16, 2));
  ASSERT_EQ(kVeldranOK, input->SetCallback(&host));
  Util::CapturedStderr captured;
  ASSERT_EQ(kVeldranOK, input->StartStreams());
  {
    std::unique_lock<std::mutex> guard(host.lock);
    host.done.wait_for(guard, std::chrono::seconds(60), [&] { return host.slots.size() >= 40; });
  }
  ASSERT_EQ(kVeldranOK, input->StopStreams());
  ASSERT_EQ(kVeldranOK, input->SetCallback(nullptr));
  EXPECT_EQ(kVeldranOK, input->DisableVideoInput());
  ASSERT_EQ(40u, host.slots.size());
  int lost = 0;
  for (size_t i = 0; i < host.slots.size(); ++i) {
    EXPECT_EQ(static_cast<int64_t>(i) * 1920, host.slots[i].second) << "slot " << i << " brings its sound";
    if (host.slots[i].first < 0) {
      ++lost;
    } else {
      EXPECT_EQ(static_cast<int64_t>(i) * 1000, host.slots[i].first) << "slot " << i << " keeps its time";
    }
  }
  EXPECT_GE(lost, 5) << "the pictures of the stall were lost";
  EXPECT_NE(std::string::npos, captured.Text().find("pictures the card was not given the time to capture"));
}

TEST(SimulatedCardTest, RealTimeDeliveryIsScheduledOnAbsoluteTime) {
  // At real speed, 13 frames of PAL take 12 frame periods at least: the card waits for
  // each frame's time instead of delivering as fast as it can.
  SimulatedCard card({{"VELDRAN_SIM_SPEED", "1"}});
  auto start = std::chrono::steady_clock::now();
  std::vector<Seen> seen = Record(card, ktnModePAL, 25000, ktnFormat8BitYUV, 13, 0);
  auto elapsed = std::chrono::steady_clock::now() - start;
  ASSERT_EQ(13u, seen.size());
  EXPECT_GE(elapsed, std::chrono::milliseconds(480));
}

TEST(SimulatedCardTest, SourceMoviePlaysInALoopInsteadOfTheBars) {
  Util::ScratchFolder folder;
  std::string movie = folder.File("source.mov");
  // Ten frames of a flat mid-grey picture, made by FFmpeg's own command line.
  std::string command = "ffmpeg -v error -y -f lavfi -i color=c=0x808080:size=320x240:rate=25 -frames:v 10 -c:v mjpeg '" +
                        movie + "'";
  ASSERT_EQ(0, system(command.c_str()));
  SimulatedCard card({{"VELDRAN_SIM_SOURCE", movie.c_str()}});
  std::vector<Seen> seen = Record(card, ktnModePAL, 25000, ktnFormat8BitYUV, 12, 12);
  ASSERT_EQ(12u, seen.size());
  for (int n : {0, 5, 11}) {
    // Mid-grey everywhere, the bars' place included: luma about 126, no colour.
    YCbCr top = Decode2vuy(&seen[n].picture[1440 * 10], BarCentre(720, 1));
    YCbCr bottom = Decode2vuy(&seen[n].picture[1440 * 500], 360);
    EXPECT_NEAR(126, top.y, 4) << n;
    EXPECT_NEAR(128, top.cb, 3) << n;
    EXPECT_NEAR(126, bottom.y, 4) << n;
  }
  EXPECT_EQ(seen[0].picture, seen[10].picture) << "the movie starts again after its tenth frame";
}

// Counts every frame the card delivers.
class FakeFrameCounter : public IVeldranInputCallback {
 public:
  VeldranResult QueryInterface(VeldranIID, void**) override { return kVeldranNoInterface; }
  int32_t AddRef() override { return 2; }  // lives on the test's stack
  int32_t Release() override { return 1; }
  VeldranResult VideoInputFormatChanged(uint32_t, IVeldranDisplayMode*, uint32_t) override { return kVeldranOK; }
  VeldranResult VideoInputFrameArrived(IVeldranVideoInputFrame* video, IVeldranAudioInputPacket*) override {
    if (video) ++frames;
    return kVeldranOK;
  }
  std::atomic<int> frames{0};
};

TEST(SimulatedCardTest, ABoundedSignalStopsAfterItsFrames) {
  SimulatedCard card({{"VELDRAN_SIM_FRAMES", "5"}});
  // The card's callback is set before its streams start, so that none of the five frames
  // (delivered as fast as the card can) comes before it.
  FakeFrameCounter counter;
  IVeldranInput* input = card.Input();
  ASSERT_EQ(kVeldranOK, input->EnableVideoInput(ktnModePAL, ktnFormat8BitYUV, ktnInputFlagDefault));
  ASSERT_EQ(kVeldranOK, input->SetCallback(&counter));
  ASSERT_EQ(kVeldranOK, input->StartStreams());
  for (int i = 0; i < 12000 && counter.frames < 5; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  // The signal has ended: nothing more comes while the card runs on.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(kVeldranOK, input->StopStreams());
  EXPECT_EQ(kVeldranOK, input->SetCallback(nullptr));
  EXPECT_EQ(kVeldranOK, input->DisableVideoInput());
  EXPECT_EQ(5, counter.frames);
}

TEST(SimulatedCardTest, BadSettingsAreReportedAndTheDefaultKept) {
  Util::CapturedStderr captured;
  // The timecodes hold what the card's own check took before the one rule for timecode text:
  // frames beyond any rate, any character between the fields.
  SimulatedCard card({{"VELDRAN_SIM_SPEED", "fast"}, {"VELDRAN_SIM_TIMECODE", "ltc"},
                      {"VELDRAN_SIM_TIMECODE_START", "01:00:00:99"}, {"VELDRAN_SIM_CUE", "01.00.00.05"}});
  std::string text = captured.Text();
  EXPECT_NE(std::string::npos, text.find("VELDRAN_SIM_SPEED=fast is not a number from 0 to 1000; using 1")) << text;
  EXPECT_NE(std::string::npos, text.find("VELDRAN_SIM_TIMECODE=ltc is not rp188, vitc or none; using rp188")) << text;
  EXPECT_NE(std::string::npos, text.find("VELDRAN_SIM_TIMECODE_START=01:00:00:99 is not HH:MM:SS:FF; using 01:00:00:00"))
      << text;
  EXPECT_NE(std::string::npos, text.find("VELDRAN_SIM_CUE=01.00.00.05 is not HH:MM:SS:FF; starting at the first frame"))
      << text;
}

// ---- Scripted signal faults (VELDRAN_SIM_EVENTS) ----

// Whether every byte of picture repeats the row-unit pattern (a v210 group, a 2vuy pair,
// an r210 pixel), row padding included.
bool Repeats(const std::vector<uint8_t>& picture, const std::vector<uint8_t>& unit) {
  if (picture.empty() || picture.size() % unit.size()) return false;
  for (size_t i = 0; i < picture.size(); i += unit.size()) {
    if (!std::equal(unit.begin(), unit.end(), picture.begin() + static_cast<std::ptrdiff_t>(i))) return false;
  }
  return true;
}

std::vector<uint8_t> LittleEndianWords(std::initializer_list<uint32_t> words) {
  std::vector<uint8_t> bytes;
  for (uint32_t word : words) {
    for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<uint8_t>(word >> shift));
  }
  return bytes;
}

TEST(SimulatedCardTest, BlackFramesAreVideoBlackInEveryCaptureFormat) {
  SimulatedCard card({{"VELDRAN_SIM_EVENTS", "black@1+2"}});
  // Y 64 and Cb, Cr 512 in every v210 group (720 pixels fill their row exactly).
  const uint32_t y = 64, c = 512;
  const std::vector<uint8_t> v210 =
      LittleEndianWords({c | y << 10 | c << 20, y | c << 10 | y << 20, c | y << 10 | c << 20, y | c << 10 | y << 20});
  // Cb Y Cr Y at 8 bits: 128 16 128 16.
  const std::vector<uint8_t> twoVuy = {128, 16, 128, 16};
  struct Case {
    uint32_t format;
    std::vector<uint8_t> unit;
  };
  for (const Case& format : {Case{ktnFormat10BitYUV, v210}, Case{ktnFormat8BitYUV, twoVuy}}) {
    std::vector<Seen> seen = Record(card, ktnModePAL, 25000, format.format, 4, 4);
    ASSERT_EQ(4u, seen.size());
    EXPECT_FALSE(Repeats(seen[0].picture, format.unit)) << "frame 0 holds the bars";
    EXPECT_TRUE(Repeats(seen[1].picture, format.unit)) << "frame 1 is black";
    EXPECT_TRUE(Repeats(seen[2].picture, format.unit)) << "frame 2 is black";
    EXPECT_FALSE(Repeats(seen[3].picture, format.unit)) << "frame 3 holds the bars again";
    YCbCr white = format.format == ktnFormat10BitYUV ? DecodeV210(&seen[3].picture[1920 * 10], BarCentre(720, 0))
                                                     : Decode2vuy(&seen[3].picture[1440 * 10], BarCentre(720, 0));
    EXPECT_EQ(format.format == ktnFormat10BitYUV ? kBars709Ten[0].y : kBars601Eight[0].y, white.y)
        << "the bars come back after the black";
  }
  // r210 is full range, as its bars are: black is 0 in every component, like the black
  // under the bars.
  std::vector<Seen> rgb = Record(card, ktnModePAL, 25000, ktnFormat10BitRGB, 4, 4);
  ASSERT_EQ(4u, rgb.size());
  int below[3];
  DecodeR210(&rgb[0].picture[3072 * 570], 2, below);
  EXPECT_EQ(0, below[0] + below[1] + below[2]) << "the bars' own black";
  EXPECT_TRUE(Repeats(rgb[1].picture, {0, 0, 0, 0}));
  EXPECT_FALSE(Repeats(rgb[3].picture, {0, 0, 0, 0}));
}

TEST(SimulatedCardTest, FrozenFramesRepeatTheFreezesFirstPictureExactly) {
  SimulatedCard card({{"VELDRAN_SIM_EVENTS", "freeze@3+4"}});
  constexpr int kFrames = 9;
  std::vector<Seen> seen = Record(card, ktnModePAL, 25000, ktnFormat10BitYUV, kFrames, kFrames);
  ASSERT_EQ(static_cast<size_t>(kFrames), seen.size());
  EXPECT_NE(seen[2].picture, seen[3].picture);
  for (int n = 4; n <= 6; ++n) EXPECT_EQ(seen[3].picture, seen[n].picture) << "frame " << n;
  EXPECT_NE(seen[6].picture, seen[7].picture) << "the box moves again after the freeze";
  // Outside the freeze, every frame is the signal's own picture of its number.
  const Sim::SimulatedMode* mode = Sim::FindSimulatedMode(ktnModePAL);
  ASSERT_NE(nullptr, mode);
  Sim::TestSignal signal(*mode, ktnFormat10BitYUV);
  std::vector<uint8_t> expected(signal.FrameBytes());
  for (int n : {0, 2, 3, 7, 8}) {
    signal.Render(n, expected.data());
    EXPECT_TRUE(seen[n].picture == expected) << "picture " << n;
  }
}

TEST(SimulatedCardTest, AFrozenSourceMovieRepeatsItsPicture) {
  Util::ScratchFolder folder;
  std::string movie = folder.File("source.mov");
  // A test pattern whose every frame differs (its counter runs).
  std::string command = "ffmpeg -v error -y -f lavfi -i testsrc=size=320x240:rate=25 -frames:v 10 -c:v mjpeg '" +
                        movie + "'";
  ASSERT_EQ(0, system(command.c_str()));
  SimulatedCard card({{"VELDRAN_SIM_SOURCE", movie.c_str()}, {"VELDRAN_SIM_EVENTS", "freeze@2+3"}});
  std::vector<Seen> seen = Record(card, ktnModePAL, 25000, ktnFormat8BitYUV, 6, 6);
  ASSERT_EQ(6u, seen.size());
  EXPECT_NE(seen[1].picture, seen[2].picture);
  EXPECT_EQ(seen[2].picture, seen[3].picture);
  EXPECT_EQ(seen[2].picture, seen[4].picture);
  EXPECT_NE(seen[4].picture, seen[5].picture);
}

// Sample i of channel of a packet of interleaved 16- or 32-bit samples.
int64_t SampleAt(const Seen& frame, int channels, int bits, int i, int channel) {
  size_t at = (static_cast<size_t>(i) * static_cast<size_t>(channels) + static_cast<size_t>(channel)) * (bits / 8);
  if (bits == 16) {
    int16_t sample;
    memcpy(&sample, &frame.sound[at], 2);
    return sample;
  }
  int32_t sample;
  memcpy(&sample, &frame.sound[at], 4);
  return sample;
}

TEST(SimulatedCardTest, SilentFramesHoldZeroOnEveryChannel) {
  SimulatedCard card({{"VELDRAN_SIM_EVENTS", "silence@1+2"}});
  std::vector<Seen> seen = Record(card, ktnModePAL, 25000, ktnFormat8BitYUV, 4, 4, 16, 32);
  ASSERT_EQ(4u, seen.size());
  ASSERT_EQ(1920u * 16 * 4, seen[1].sound.size());
  auto silent = [](const Seen& frame) {
    return std::all_of(frame.sound.begin(), frame.sound.end(), [](uint8_t byte) { return byte == 0; });
  };
  EXPECT_FALSE(silent(seen[0]));
  EXPECT_TRUE(silent(seen[1]));
  EXPECT_TRUE(silent(seen[2]));
  EXPECT_FALSE(silent(seen[3]));
  EXPECT_EQ(1920, seen[2].sampleFrames) << "a silent frame keeps its length";
}

TEST(SimulatedCardTest, ClippedFramesDriveTheFirstChannelToFullScaleOnly) {
  for (int bits : {16, 32}) {
    SimulatedCard card({{"VELDRAN_SIM_EVENTS", "clip@1+1"}});
    std::vector<Seen> seen = Record(card, ktnModePAL, 25000, ktnFormat8BitYUV, 3, 3, 2, bits);
    ASSERT_EQ(3u, seen.size());
    const int64_t largest = bits == 16 ? 32767 : 2147483647;
    const int64_t smallest = -largest - 1;
    // The longest runs of consecutive samples at the largest and at the smallest value.
    auto runs = [&](const Seen& frame, int channel, int64_t* high, int64_t* low) {
      int64_t highRun = 0, lowRun = 0;
      *high = *low = 0;
      for (int i = 0; i < frame.sampleFrames; ++i) {
        int64_t sample = SampleAt(frame, 2, bits, i, channel);
        highRun = sample == largest ? highRun + 1 : 0;
        lowRun = sample == smallest ? lowRun + 1 : 0;
        *high = std::max(*high, highRun);
        *low = std::max(*low, lowRun);
      }
    };
    int64_t high = 0, low = 0;
    runs(seen[1], 0, &high, &low);
    EXPECT_GE(high, 3) << bits << " bits";
    EXPECT_GE(low, 3) << bits << " bits";
    for (int n : {0, 2}) {
      runs(seen[n], 0, &high, &low);
      EXPECT_EQ(0, high + low) << "frame " << n << " is not clipped";
    }
    runs(seen[1], 1, &high, &low);
    EXPECT_EQ(0, high + low) << "channel 2 is not clipped";
    // Channel 2 carries its tone unchanged: the 2 kHz sine at -20 dBFS.
    const double fullScale = static_cast<double>(largest);
    for (int i : {0, 3, 17, 1919}) {
      double expected = 0.1 * sin(2 * M_PI * 2000.0 * (1920 + i) / 48000.0);
      EXPECT_NEAR(expected, static_cast<double>(SampleAt(seen[1], 2, bits, i, 1)) / fullScale, 1e-4) << i;
    }
  }
}

TEST(SimulatedCardTest, TimecodeJumpSkipsFramesAndRunsOnFromThere) {
  SimulatedCard card({{"VELDRAN_SIM_EVENTS", "tcjump@3+10"}});
  std::vector<Seen> seen = Record(card, ktnModePAL, 25000, ktnFormat8BitYUV, 6, 0);
  ASSERT_EQ(6u, seen.size());
  EXPECT_EQ("01:00:00:00", seen[0].timecode);
  EXPECT_EQ("01:00:00:02", seen[2].timecode);
  EXPECT_EQ("01:00:00:13", seen[3].timecode) << "02 is followed by 03, and ten frames more";
  EXPECT_EQ("01:00:00:14", seen[4].timecode);
  EXPECT_EQ("01:00:00:15", seen[5].timecode);
  EXPECT_EQ(3000, seen[3].frameTime - seen[0].frameTime) << "the stream's own time does not jump";
}

TEST(SimulatedCardTest, BadSignalEventsAreReportedAndNonePlayed) {
  Util::CapturedStderr captured;
  SimulatedCard card({{"VELDRAN_SIM_EVENTS", "black@0+2,freeze@1"}});
  std::string text = captured.Text();
  EXPECT_NE(std::string::npos,
            text.find("VELDRAN_SIM_EVENTS=black@0+2,freeze@1: \"freeze@1\" is not KIND@FIRST+COUNT; playing no events"))
      << text;
  std::vector<Seen> seen = Record(card, ktnModePAL, 25000, ktnFormat8BitYUV, 1, 1);
  ASSERT_EQ(1u, seen.size());
  EXPECT_FALSE(Repeats(seen[0].picture, {128, 16, 128, 16})) << "frame 0 holds the bars, not black";
}

TEST(SimulatedCardTest, OnlyTheEntryPointsAreExported) {
  SimulatedCard card;
  const VeldranEntryPoints& entryPoints = card.EntryPoints();
  EXPECT_NE(nullptr, entryPoints.createIterator);
  EXPECT_NE(nullptr, entryPoints.createOpenGLPreview);
  EXPECT_NE(nullptr, entryPoints.createCocoaPreview);
  EXPECT_NE(nullptr, entryPoints.createVideoConversion);
  void* library = dlopen(SIMULATED_CARD_BUNDLE "/Contents/Linux/VeldranAPI.so", RTLD_NOW | RTLD_LOCAL);
  EXPECT_EQ(nullptr, dlsym(library, "_ZN3KTN3Sim14SimulatedInput11StartStreamsEv"));
}

}  // namespace
}  // namespace KTN
