// The simulated card's picture: 75% colour bars over a moving box, in any of its pixel formats.
#pragma once

#include <stdint.h>

#include <vector>

#include "Simulator/PixelRows.h"
#include "Simulator/SimulatedModes.h"

namespace KTN {
namespace Sim {

// The seven bars, left to right: white, yellow, cyan, green, magenta, red, blue at 75%.
extern const double kBarColours[7][3];

class TestSignal {
 public:
  TestSignal(const SimulatedMode& mode, uint32_t pixelFormat);

  uint64_t RowBytes() const { return mRowBytes; }
  uint64_t FrameBytes() const { return mRowBytes * static_cast<uint64_t>(mHeight); }
  // Rows 0 .. BarRows() - 1 are the bars; below them a white box moves over black.
  int BarRows() const { return mBarRows; }

  // Writes picture number n (FrameBytes bytes). The box's place depends on n, so every
  // picture differs from its neighbours. Costs a copy of the frame and a few rows; when
  // frame holds a picture of this signal already (holdsPicture), only the box's rows, which
  // are all that differ from one picture to the next.
  void Render(int64_t n, uint8_t* frame, bool holdsPicture = false);
  // Writes a black picture (FrameBytes bytes): the black under the bars, over the whole
  // picture. Costs a copy of the frame.
  void RenderBlack(uint8_t* frame) const;
  // Tells this signal's pictures from those of any other signal of the process (never 0).
  uint64_t Id() const { return mId; }

  // Left edge of the box in picture n, in pixels.
  int BoxLeft(int64_t n) const;
  int BoxSize() const { return mBoxSize; }
  int BoxTop() const { return mBoxTop; }

 private:
  int mWidth;
  int mHeight;
  uint32_t mFormat;
  uint64_t mRowBytes;
  int mBarRows;
  int mBoxSize;
  int mBoxTop;
  int mBoxStep;
  std::vector<uint8_t> mBase;     // the bars and the black below them
  std::vector<Pixel> mBoxPixels;  // scratch for one row of the box
  std::vector<uint8_t> mBoxRow;
  std::vector<uint8_t> mBlackRow;
  Pixel mBlack;
  Pixel mWhite;
  uint64_t mId;
};

// What a frame's sound suffers: nothing, silence on every channel, or the first channel
// overdriven (its tone 32 dB too loud, clipped at the format's largest and smallest values).
enum class ToneFault { kNone, kSilence, kClipFirstChannel };

// The sound: channel k carries a (k + 1) kHz sine at -20 dBFS, continuous in phase.
class TestTone {
 public:
  static constexpr int kSampleRate = 48000;
  // Interleaved signed little-endian samples of 16 or 32 bits starting at firstSample.
  static void Render(int64_t firstSample, int sampleFrames, int channels, int bits, uint8_t* out,
                     ToneFault fault = ToneFault::kNone);
  // The sample frames before frame n of a mode: its time in samples, rounded, so a frame
  // carries exactly its duration's sound and whole seconds hold exactly 48000.
  static int64_t SamplesBefore(int64_t frame, const SimulatedMode& mode);
};

}  // namespace Sim
}  // namespace KTN
