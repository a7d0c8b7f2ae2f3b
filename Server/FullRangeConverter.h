// Turns 8-bit 4:2:2 video-range rows into the full-range BT.601 planar picture that JPEG codes.
#pragma once

#include <stdint.h>

namespace KTN {

// JPEG codes luma and chroma over the full 0..255 range, and every JPEG decoder reads its
// colours with the BT.601 matrix; the card's '2vuy' rows (Cb Y0 Cr Y1 per pixel pair)
// carry video range (luma 16..235, chroma 16..240), in BT.709 above standard definition.
// A general scaler spends most of a JPEG recording's time on this step; here it is a few
// table lookups per pixel. Immutable after construction: any thread may use it.
class FullRangeConverter {
 public:
  // fromBt709: the rows' colours are BT.709 (HD and 2K) and are turned into BT.601's;
  // otherwise they are BT.601 already and only their range changes.
  explicit FullRangeConverter(bool fromBt709 = false);

  // Converts height rows of width pixels (width even), rowBytes apart from source, into
  // the Y, Cb and Cr planes of a 4:2:2 picture (planes[i] rows are linesizes[i] apart).
  // Values outside video range are clipped, as they would be on any monitor.
  void Convert(const uint8_t* source, int64_t rowBytes, int width, int height, uint8_t* const planes[3],
               const int linesizes[3]) const;

 private:
  bool mMatrix;  // the BT.709 to BT.601 tables below are used
  uint8_t mLuma[256];
  uint8_t mChroma[256];
  // Fixed point (16 fractional bits), full range: luma from Y, Cb and Cr; Cb and Cr from
  // Cb and Cr.
  int32_t mLumaFromY[256], mLumaFromCb[256], mLumaFromCr[256];
  int32_t mCbFromCb[256], mCbFromCr[256], mCrFromCb[256], mCrFromCr[256];
};

}  // namespace KTN
