// Bytes per row of the card's capture pixel formats, as the device lays out a frame's rows.
#pragma once

#include <stdint.h>

#include "Util/FourCC.h"

namespace KTN {
namespace Util {

// '2vuy': 2 bytes a pixel. 'v210': 16 bytes per 6 pixels, rows padded to 48 pixels (128
// bytes). 'r210': 4 bytes a pixel, rows padded to 64 pixels (256 bytes). 0 for any other
// format. These are the strides the movie's uncompressed samples use too.
constexpr uint64_t RowBytes(uint32_t pixelFormat, uint32_t width) {
  return pixelFormat == FourCC("2vuy")   ? uint64_t{width} * 2
         : pixelFormat == FourCC("v210") ? (uint64_t{width} + 47) / 48 * 128
         : pixelFormat == FourCC("r210") ? (uint64_t{width} + 63) / 64 * 256
                                         : 0;
}

}  // namespace Util
}  // namespace KTN
