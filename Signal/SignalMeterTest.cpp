// Tests of the picture and sound meters and of the events found in their readings.
#include <gtest/gtest.h>
#include <math.h>

#include <vector>

#include "Signal/PictureMeter.h"
#include "Signal/SignalEventFinder.h"
#include "Signal/SoundMeter.h"
#include "Util/FourCC.h"
#include "Util/RowBytes.h"

namespace KTN {
namespace {

// A '2vuy' picture of width x rows whose luma is luma(x, y).
template <typename Luma>
std::vector<uint8_t> Picture2vuy(int width, int rows, Luma luma) {
  std::vector<uint8_t> bytes(static_cast<size_t>(width) * 2 * rows);
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < width; ++x) {
      uint8_t* p = bytes.data() + (static_cast<size_t>(y) * width + x) * 2;
      p[0] = 128;
      p[1] = static_cast<uint8_t>(luma(x, y));
    }
  }
  return bytes;
}

TEST(PictureMeterTest, ReadsLumaBlackAndChangeFromPiecesInAnyOrder) {
  const int width = 720, rows = 576;
  PictureMeter meter(Util::FourCC("2vuy"), width, rows, Util::RowBytes(Util::FourCC("2vuy"), width));
  ASSERT_TRUE(meter.Measures());
  // Left half white, right half black.
  std::vector<uint8_t> half = Picture2vuy(width, rows, [&](int x, int) { return x < width / 2 ? 235 : 16; });
  // The second half first, then the first, in odd pieces.
  const size_t cut = half.size() / 2 + 7;
  meter.Update(cut, half.data() + cut, half.size() - cut);
  meter.Update(0, half.data(), cut);
  PictureReading first = meter.End(0);
  EXPECT_NEAR(50.0, first.levels.mean, 0.5);
  EXPECT_FLOAT_EQ(0.0f, first.levels.minimum);
  EXPECT_FLOAT_EQ(100.0f, first.levels.maximum);
  EXPECT_NEAR(0.5, first.blackShare, 0.01);
  EXPECT_FALSE(first.levels.hasChange);

  // The same picture again: no change at all.
  meter.Update(0, half.data(), half.size());
  PictureReading same = meter.End(1);
  ASSERT_TRUE(same.levels.hasChange);
  EXPECT_EQ(0.0, same.change);
  EXPECT_TRUE(std::isinf(same.levels.changeDb));

  // Black throughout, just under blackdetect's 10%: black; and changed.
  std::vector<uint8_t> black = Picture2vuy(width, rows, [](int, int) { return 16 + 21; });
  meter.Update(0, black.data(), black.size());
  PictureReading dark = meter.End(2);
  EXPECT_EQ(1.0, dark.blackShare);
  EXPECT_GT(dark.change, 0.001);
  std::vector<uint8_t> grey = Picture2vuy(width, rows, [](int, int) { return 16 + 23; });
  meter.Update(0, grey.data(), grey.size());
  EXPECT_EQ(0.0, meter.End(3).blackShare) << "above 10% of the way to white is not black";
}

TEST(PictureMeterTest, SeesBothFieldsAndEveryFormat) {
  const int width = 1920, rows = 1080;
  // Only the odd rows (the second field) change: still a change.
  PictureMeter meter(Util::FourCC("2vuy"), width, rows, Util::RowBytes(Util::FourCC("2vuy"), width));
  std::vector<uint8_t> a = Picture2vuy(width, rows, [](int, int) { return 100; });
  std::vector<uint8_t> b = Picture2vuy(width, rows, [](int, int y) { return y % 2 ? 200 : 100; });
  meter.Update(0, a.data(), a.size());
  meter.End(0);
  meter.Update(0, b.data(), b.size());
  EXPECT_GT(meter.End(1).change, 0.1);

  // 'v210' video black and 'r210' full-range black read as 0%, white as 100%.
  const uint64_t v210Row = Util::RowBytes(Util::FourCC("v210"), width);
  std::vector<uint8_t> v210(v210Row * rows);
  for (size_t i = 0; i + 4 <= v210.size(); i += 4) {
    const uint32_t word = 512u | 940u << 10 | 512u << 20;
    v210[i] = static_cast<uint8_t>(word), v210[i + 1] = static_cast<uint8_t>(word >> 8);
    v210[i + 2] = static_cast<uint8_t>(word >> 16), v210[i + 3] = static_cast<uint8_t>(word >> 24);
  }
  PictureMeter v(Util::FourCC("v210"), width, rows, v210Row);
  v.Update(0, v210.data(), v210.size());
  EXPECT_NEAR(100.0, v.End(0).levels.mean, 0.01);
  const uint64_t r210Row = Util::RowBytes(Util::FourCC("r210"), width);
  std::vector<uint8_t> r210(r210Row * rows, 0);
  PictureMeter r(Util::FourCC("r210"), width, rows, r210Row);
  r.Update(0, r210.data(), r210.size());
  PictureReading dark = r.End(0);
  EXPECT_EQ(0.0f, dark.levels.mean);
  EXPECT_EQ(1.0, dark.blackShare);
  EXPECT_FALSE(PictureMeter(Util::FourCC("ARGB"), width, rows, width * 4).Measures());
}

// Interleaved 16-bit little-endian stereo: channel 0 a value, channel 1 another.
std::vector<uint8_t> Stereo16(int frames, int16_t left, int16_t right) {
  std::vector<uint8_t> bytes(static_cast<size_t>(frames) * 4);
  for (int i = 0; i < frames; ++i) {
    bytes[i * 4] = static_cast<uint8_t>(left), bytes[i * 4 + 1] = static_cast<uint8_t>(left >> 8);
    bytes[i * 4 + 2] = static_cast<uint8_t>(right), bytes[i * 4 + 3] = static_cast<uint8_t>(right >> 8);
  }
  return bytes;
}

TEST(SoundMeterTest, CutsTheSoundIntoSlotsAndMeasuresEachChannel) {
  SoundMeter meter(2, 16, 48000, 1, 25);  // 1920 sample frames a slot
  std::vector<uint8_t> chunk = Stereo16(3000, 3277, 0);  // -20 dBFS, silence
  meter.Begin(0);
  // A piece boundary inside a sample frame.
  meter.Update(chunk.data(), 1001);
  meter.Update(chunk.data() + 1001, chunk.size() - 1001);
  std::vector<SoundReading> done = meter.End();
  ASSERT_EQ(1u, done.size()) << "slot 0 complete, slot 1 not yet";
  EXPECT_EQ(0, done[0].levels.slot);
  EXPECT_NEAR(-20.0, done[0].levels.peakDb[0], 0.01);
  EXPECT_NEAR(-20.0, done[0].levels.rmsDb[0], 0.01) << "a constant's RMS is its peak";
  EXPECT_TRUE(std::isinf(done[0].levels.peakDb[1]));
  // A chunk that is left out changes nothing.
  meter.Begin(3000);
  std::vector<uint8_t> loud = Stereo16(2000, 32767, 32767);
  meter.Update(loud.data(), loud.size());
  meter.Abort();
  meter.Begin(3000);
  std::vector<uint8_t> rest = Stereo16(840, 3277, 0);
  meter.Update(rest.data(), rest.size());
  done = meter.End();
  ASSERT_EQ(1u, done.size()) << "slot 1 filled exactly";
  EXPECT_EQ(1, done[0].levels.slot);
  EXPECT_NEAR(-20.0, done[0].levels.peakDb[0], 0.01);
  EXPECT_TRUE(meter.Flush().empty());
}

TEST(SoundMeterTest, ClippingIsThreeSamplesInARowAtFullScaleAcrossChunks) {
  SoundMeter meter(1, 24, 48000, 1, 25);
  auto sample24 = [](int32_t v) {
    return std::vector<uint8_t>{static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16)};
  };
  auto feed = [&](int64_t first, std::vector<int32_t> values) {
    meter.Begin(first);
    for (int32_t v : values) {
      std::vector<uint8_t> b = sample24(v);
      meter.Update(b.data(), b.size());
    }
    return meter.End();
  };
  feed(0, {8388607, 8388607, 0, -8388608, -8388608});  // two at the top, two at the bottom: no clip
  std::vector<int32_t> quiet(1915, 100);
  std::vector<SoundReading> done = feed(5, quiet);
  ASSERT_EQ(1u, done.size());
  EXPECT_FALSE(done[0].clipped[0]);
  EXPECT_NEAR(0.0, done[0].levels.peakDb[0], 0.001);
  feed(1920, std::vector<int32_t>(1918, 0));
  done = feed(3838, {8388607, 8388607});  // a run crossing into the next slot
  EXPECT_EQ(1u, done.size());
  EXPECT_FALSE(done[0].clipped[0]);
  feed(3840, {8388607});
  done = meter.Flush();
  ASSERT_EQ(1u, done.size());
  EXPECT_EQ(2, done[0].levels.slot);
  EXPECT_TRUE(done[0].clipped[0]) << "the third sample of the run is in slot 2";
}

TEST(SoundMeterTest, SlotsAt2997HoldTheirRoundedShareOfSamples) {
  SoundMeter meter(1, 16, 48000, 1001, 30000);  // 1601.6 sample frames a slot
  std::vector<uint8_t> chunk(static_cast<size_t>(48048) * 2, 0);
  meter.Begin(0);
  meter.Update(chunk.data(), chunk.size());
  std::vector<SoundReading> done = meter.End();
  EXPECT_EQ(30u, done.size()) << "a second and a frame's worth of 1001/30000 slots";
}

PictureReading Reading(int64_t slot, double black, double change, bool first = false) {
  PictureReading reading;
  reading.levels.slot = slot;
  reading.blackShare = black;
  reading.change = change;
  reading.levels.hasChange = !first;
  return reading;
}

SoundReading Sound(int64_t slot, float peak, bool clipped) {
  SoundReading reading;
  reading.levels.slot = slot;
  reading.levels.peakDb = {peak};
  reading.levels.rmsDb = {peak};
  reading.clipped = {clipped};
  return reading;
}

TEST(SignalEventFinderTest, FindsEachRunOnceWithItsFirstSlotAndLength) {
  SignalEventFinder finder(1, 25, 1);
  int64_t slot = 0;
  finder.Picture(Reading(slot++, 0, 0, true));
  for (int i = 0; i < 5; ++i) finder.Picture(Reading(slot++, 0, 0.01));
  // Black for 3 slots (the first changes, the rest do not): black only, no freeze.
  for (int i = 0; i < 3; ++i) finder.Picture(Reading(slot++, 1.0, i ? 0 : 0.2));
  // One black slot alone is no event.
  finder.Picture(Reading(slot++, 0, 0.2));
  finder.Picture(Reading(slot++, 0.99, 0.2));
  finder.Picture(Reading(slot++, 0, 0.2));
  // A picture held for 10 slots: the held one and 9 unchanged.
  const int64_t held = slot;
  finder.Picture(Reading(slot++, 0, 0.2));
  for (int i = 0; i < 9; ++i) finder.Picture(Reading(slot++, 0, 0.0009));
  finder.Picture(Reading(slot++, 0, 0.2));
  // Held for 9 slots only: no event.
  for (int i = 0; i < 8; ++i) finder.Picture(Reading(slot++, 0, 0));
  finder.Picture(Reading(slot++, 0, 0.2));
  // Slots 30 and 31 have no picture.
  slot += 2;
  finder.Picture(Reading(slot++, 0, 0.2));
  finder.Finish(slot + 3);
  std::vector<SignalEvent> events = finder.Take();
  ASSERT_EQ(4u, events.size());
  EXPECT_EQ("{\"kind\":\"black\",\"slot\":6,\"frames\":3}\n", events[0].Line());
  EXPECT_EQ(SignalEvent::Kind::kFreeze, events[1].kind);
  EXPECT_EQ(held, events[1].slot);
  EXPECT_EQ(10, events[1].frames);
  EXPECT_EQ("{\"kind\":\"dropped\",\"slot\":32,\"frames\":2}\n", events[2].Line());
  EXPECT_EQ("{\"kind\":\"dropped\",\"slot\":35,\"frames\":3}\n", events[3].Line()) << "slots after the last picture";
  EXPECT_TRUE(finder.Take().empty());
}

TEST(SignalEventFinderTest, SilenceLastsASecondAndClippingAnySlot) {
  SignalEventFinder finder(1, 25, 1);
  int64_t slot = 0;
  finder.Sound(Sound(slot++, -20, false));
  for (int i = 0; i < 24; ++i) finder.Sound(Sound(slot++, -61, false));  // under a second
  finder.Sound(Sound(slot++, -20, true));
  finder.Sound(Sound(slot++, -20, true));
  const int64_t quiet = slot;
  for (int i = 0; i < 25; ++i) finder.Sound(Sound(slot++, -INFINITY, false));  // a second
  finder.Sound(Sound(slot++, -59, false));
  finder.Sound(Sound(slot++, -20, true));
  finder.Finish(-1);
  std::vector<SignalEvent> events = finder.Take();
  ASSERT_EQ(3u, events.size());
  EXPECT_EQ("{\"kind\":\"clipping\",\"slot\":25,\"frames\":2,\"channel\":1}\n", events[0].Line());
  EXPECT_EQ(SignalEvent::Kind::kSilence, events[1].kind);
  EXPECT_EQ(quiet, events[1].slot);
  EXPECT_EQ(25, events[1].frames);
  EXPECT_EQ(1, events[1].channel);
  EXPECT_EQ(SignalEvent::Kind::kClipping, events[2].kind) << "a run open at the end ends with the take";
  EXPECT_EQ(slot - 1, events[2].slot);
}

}  // namespace
}  // namespace KTN
