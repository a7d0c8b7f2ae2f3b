// Turns 8-bit 4:2:2 video-range rows into the full-range planar picture that JPEG codes.
#pragma once

#include <stdint.h>

namespace KTN {

// JPEG codes luma and chroma over the full 0..255 range, while the card's '2vuy' rows
// (Cb Y0 Cr Y1 per pixel pair) carry video range: luma 16..235, chroma 16..240. A general
// scaler spends most of a JPEG recording's time on this step; here it is one table
// lookup per byte. Immutable after construction: any thread may use it.
class FullRangeConverter {
 public:
  FullRangeConverter();

  // Converts height rows of width pixels (width even), rowBytes apart from source, into
  // the Y, Cb and Cr planes of a 4:2:2 picture (planes[i] rows are linesizes[i] apart).
  // Values outside video range are clipped, as they would be on any monitor.
  void Convert(const uint8_t* source, int64_t rowBytes, int width, int height, uint8_t* const planes[3],
               const int linesizes[3]) const;

 private:
  uint8_t mLuma[256];
  uint8_t mChroma[256];
};

}  // namespace KTN
