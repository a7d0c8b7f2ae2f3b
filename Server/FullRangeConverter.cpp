// Video-range '2vuy' rows to full-range BT.601 planar 4:2:2 by table.
#include "Server/FullRangeConverter.h"

#include <cmath>

namespace KTN {

namespace {

uint8_t Clipped(double value) {
  return static_cast<uint8_t>(value <= 0 ? 0 : value >= 255 ? 255 : value);
}

// A fixed-point value with 16 fractional bits, rounded to the nearest 8-bit level and clipped.
uint8_t ClippedFixed(int32_t value) {
  int32_t level = (value + (1 << 15)) >> 16;
  return static_cast<uint8_t>(level < 0 ? 0 : level > 255 ? 255 : level);
}

int32_t Fixed(double value) {
  return static_cast<int32_t>(std::lround(value * 65536.0));
}

// BT.709's Y'PbPr as BT.601's: the two matrices' R'G'B' are the same, so BT.601's luma takes
// a little of the colour differences and each difference a little of the other.
constexpr double kLumaFromPb = 0.101579, kLumaFromPr = 0.196076;
constexpr double kPbFromPb = 0.989854, kPbFromPr = -0.110653;
constexpr double kPrFromPb = -0.072453, kPrFromPr = 0.983398;

}  // namespace

FullRangeConverter::FullRangeConverter(bool fromBt709) : mMatrix(fromBt709) {
  for (int v = 0; v < 256; ++v) {
    const double luma = (v - 16) / 219.0;       // 0..1 over video range
    const double difference = (v - 128) / 224.0;  // -0.5..0.5
    mLumaFromY[v] = Fixed(255.0 * luma);
    mLumaFromCb[v] = Fixed(255.0 * kLumaFromPb * difference);
    mLumaFromCr[v] = Fixed(255.0 * kLumaFromPr * difference);
    mCbFromCb[v] = Fixed(128.0 + 255.0 * kPbFromPb * difference);
    mCbFromCr[v] = Fixed(255.0 * kPbFromPr * difference);
    mCrFromCb[v] = Fixed(255.0 * kPrFromPb * difference);
    mCrFromCr[v] = Fixed(128.0 + 255.0 * kPrFromPr * difference);
  }
  for (int v = 0; v < 256; ++v) {
    mLuma[v] = Clipped(std::round((v - 16) * 255.0 / 219.0));
    // Rounded away from the centre, so the two ends of video range land on 0 and 255 alike.
    mChroma[v] = Clipped(128.0 + std::round((v - 128) * 255.0 / 224.0));
  }
}

void FullRangeConverter::Convert(const uint8_t* source, int64_t rowBytes, int width, int height,
                                 uint8_t* const planes[3], const int linesizes[3]) const {
  const int pairs = width / 2;
  if (mMatrix) {
    for (int row = 0; row < height; ++row) {
      const uint8_t* in = source + rowBytes * row;
      uint8_t* y = planes[0] + static_cast<int64_t>(linesizes[0]) * row;
      uint8_t* cb = planes[1] + static_cast<int64_t>(linesizes[1]) * row;
      uint8_t* cr = planes[2] + static_cast<int64_t>(linesizes[2]) * row;
      for (int pair = 0; pair < pairs; ++pair, in += 4) {
        const int32_t fromChroma = mLumaFromCb[in[0]] + mLumaFromCr[in[2]];
        y[2 * pair] = ClippedFixed(mLumaFromY[in[1]] + fromChroma);
        y[2 * pair + 1] = ClippedFixed(mLumaFromY[in[3]] + fromChroma);
        cb[pair] = ClippedFixed(mCbFromCb[in[0]] + mCbFromCr[in[2]]);
        cr[pair] = ClippedFixed(mCrFromCb[in[0]] + mCrFromCr[in[2]]);
      }
    }
    return;
  }
  for (int row = 0; row < height; ++row) {
    const uint8_t* in = source + rowBytes * row;
    uint8_t* y = planes[0] + static_cast<int64_t>(linesizes[0]) * row;
    uint8_t* cb = planes[1] + static_cast<int64_t>(linesizes[1]) * row;
    uint8_t* cr = planes[2] + static_cast<int64_t>(linesizes[2]) * row;
    for (int pair = 0; pair < pairs; ++pair, in += 4) {
      cb[pair] = mChroma[in[0]];
      y[2 * pair] = mLuma[in[1]];
      cr[pair] = mChroma[in[2]];
      y[2 * pair + 1] = mLuma[in[3]];
    }
  }
}

}  // namespace KTN
