// Video-range '2vuy' rows to full-range planar 4:2:2 by table.
#include "Server/FullRangeConverter.h"

#include <cmath>

namespace KTN {

namespace {

uint8_t Clipped(double value) {
  return static_cast<uint8_t>(value <= 0 ? 0 : value >= 255 ? 255 : value);
}

}  // namespace

FullRangeConverter::FullRangeConverter() {
  for (int v = 0; v < 256; ++v) {
    mLuma[v] = Clipped(std::round((v - 16) * 255.0 / 219.0));
    // Rounded away from the centre, so the two ends of video range land on 0 and 255 alike.
    mChroma[v] = Clipped(128.0 + std::round((v - 128) * 255.0 / 224.0));
  }
}

void FullRangeConverter::Convert(const uint8_t* source, int64_t rowBytes, int width, int height,
                                 uint8_t* const planes[3], const int linesizes[3]) const {
  const int pairs = width / 2;
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
