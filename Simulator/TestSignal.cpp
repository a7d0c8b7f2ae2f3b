// The simulated card's picture and sound.
#include "Simulator/TestSignal.h"

#include <math.h>
#include <string.h>

#include <algorithm>
#include <atomic>

namespace KTN {
namespace Sim {

namespace {

uint64_t NextSignalId() {
  static std::atomic<uint64_t> last{0};
  return ++last;
}

}  // namespace

const double kBarColours[7][3] = {
    {0.75, 0.75, 0.75}, {0.75, 0.75, 0}, {0, 0.75, 0.75}, {0, 0.75, 0}, {0.75, 0, 0.75}, {0.75, 0, 0}, {0, 0, 0.75},
};

TestSignal::TestSignal(const SimulatedMode& mode, uint32_t pixelFormat)
    : mWidth(mode.width),
      mHeight(mode.height),
      mFormat(pixelFormat),
      mRowBytes(FrameRowBytes(pixelFormat, mode.width)),
      mBarRows(mode.height * 2 / 3),
      mBoxSize((mode.height / 12) & ~1),
      mBoxTop(mBarRows + (mode.height - mBarRows - mBoxSize) / 2),
      mBoxStep(((mode.width / 97) & ~1) > 2 ? (mode.width / 97) & ~1 : 2),
      mBase(FrameBytes()),
      mBoxPixels(static_cast<size_t>(mode.width)),
      mBoxRow(mRowBytes),
      mBlack(ColourPixel(0, 0, 0, mode.hd)),
      mWhite(ColourPixel(1, 1, 1, mode.hd)),
      mId(NextSignalId()) {
  std::vector<Pixel> bars(static_cast<size_t>(mWidth));
  for (int x = 0; x < mWidth; ++x) {
    const double* colour = kBarColours[x * 7 / mWidth];
    bars[x] = ColourPixel(colour[0], colour[1], colour[2], mode.hd);
  }
  std::vector<Pixel> black(static_cast<size_t>(mWidth), mBlack);
  std::vector<uint8_t> barRow(mRowBytes);
  mBlackRow.resize(mRowBytes);
  PackRow(mFormat, bars.data(), mWidth, barRow.data());
  PackRow(mFormat, black.data(), mWidth, mBlackRow.data());
  for (int y = 0; y < mHeight; ++y) {
    memcpy(&mBase[static_cast<size_t>(y) * mRowBytes], y < mBarRows ? barRow.data() : mBlackRow.data(), mRowBytes);
  }
}

void TestSignal::RenderBlack(uint8_t* frame) const {
  for (int y = 0; y < mHeight; ++y) memcpy(frame + static_cast<size_t>(y) * mRowBytes, mBlackRow.data(), mRowBytes);
}

int TestSignal::BoxLeft(int64_t n) const {
  int64_t travel = mWidth - mBoxSize;
  return static_cast<int>((n * mBoxStep) % (travel > 0 ? travel : 1)) & ~1;
}

void TestSignal::Render(int64_t n, uint8_t* frame, bool holdsPicture) {
  if (!holdsPicture) memcpy(frame, mBase.data(), mBase.size());
  int left = BoxLeft(n);
  for (int x = 0; x < mWidth; ++x) mBoxPixels[x] = x >= left && x < left + mBoxSize ? mWhite : mBlack;
  PackRow(mFormat, mBoxPixels.data(), mWidth, mBoxRow.data());
  for (int y = mBoxTop; y < mBoxTop + mBoxSize; ++y) memcpy(frame + static_cast<size_t>(y) * mRowBytes, mBoxRow.data(), mRowBytes);
}

namespace {

// One 48-sample period holds a whole number of cycles of every (k + 1) kHz tone at 48 kHz.
struct ToneTables {
  int16_t samples16[16][48];
  int32_t samples32[16][48];
  // The first channel's tone overdriven: 4 times full scale, so that about 20 samples of
  // each half cycle sit at the largest or the smallest value.
  int16_t clipped16[48];
  int32_t clipped32[48];
  ToneTables() {
    const double amplitude = 0.1;  // -20 dBFS
    for (int channel = 0; channel < 16; ++channel) {
      for (int i = 0; i < 48; ++i) {
        double value = amplitude * sin(2 * M_PI * (channel + 1) * i / 48.0);
        samples16[channel][i] = static_cast<int16_t>(lround(value * 32767));
        samples32[channel][i] = static_cast<int32_t>(llround(value * 2147483647.0));
      }
    }
    for (int i = 0; i < 48; ++i) {
      double value = 4.0 * sin(2 * M_PI * i / 48.0);
      clipped16[i] = static_cast<int16_t>(std::min(32767.0, std::max(-32768.0, std::round(value * 32768))));
      clipped32[i] =
          static_cast<int32_t>(std::min(2147483647.0, std::max(-2147483648.0, std::round(value * 2147483648.0))));
    }
  }
};

const ToneTables& Tables() {
  static const ToneTables sTables;
  return sTables;
}

}  // namespace

void TestTone::Render(int64_t firstSample, int sampleFrames, int channels, int bits, uint8_t* out, ToneFault fault) {
  if (fault == ToneFault::kSilence) {
    memset(out, 0, static_cast<size_t>(sampleFrames) * static_cast<size_t>(channels) * static_cast<size_t>(bits / 8));
    return;
  }
  const ToneTables& tables = Tables();
  const bool clip = fault == ToneFault::kClipFirstChannel;
  int phase = static_cast<int>(firstSample % 48);
  for (int i = 0; i < sampleFrames; ++i) {
    for (int channel = 0; channel < channels; ++channel) {
      int table = channel % 16;
      if (bits == 16) {
        int16_t sample = clip && channel == 0 ? tables.clipped16[phase] : tables.samples16[table][phase];
        memcpy(out, &sample, 2);  // little-endian host
        out += 2;
      } else {
        int32_t sample = clip && channel == 0 ? tables.clipped32[phase] : tables.samples32[table][phase];
        memcpy(out, &sample, 4);
        out += 4;
      }
    }
    phase = phase == 47 ? 0 : phase + 1;
  }
}

int64_t TestTone::SamplesBefore(int64_t frame, const SimulatedMode& mode) {
  // frame x duration / scale seconds, in samples, rounded half up with integers only.
  return (2 * frame * mode.frameDuration * kSampleRate + mode.timeScale) / (2 * mode.timeScale);
}

}  // namespace Sim
}  // namespace KTN
