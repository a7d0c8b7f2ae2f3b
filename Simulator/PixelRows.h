// Rows of the card's pixel formats: packing pixels into them and reading them back.
#pragma once

#include <stdint.h>

namespace KTN {
namespace Sim {

// One pixel in both forms the formats need: 10-bit video-range Y'CbCr (Y 64..940, C 64..960)
// and 10-bit full-range R'G'B' (0..1023). 8-bit formats take the high 8 bits.
struct Pixel {
  uint16_t y, cb, cr;
  uint16_t r, g, b;
};

// The pixel of a colour given as R'G'B' fractions 0..1, with BT.709 (hd) or BT.601 weights.
Pixel ColourPixel(double r, double g, double b, bool hd);

// Bytes of one row: '2vuy', 'v210', 'r210' as the device lays them out, 4 a pixel for the
// 8-bit ARGB and BGRA formats; 0 for an unknown format.
uint64_t FrameRowBytes(uint32_t format, int width);

// Packs width pixels into row. 4:2:2 formats take each pair's chroma from its first pixel;
// v210 and r210 rows are zero-padded to their row size.
void PackRow(uint32_t format, const Pixel* pixels, int width, uint8_t* row);

// Reads width pixels back: Y'CbCr formats fill y, cb, cr (each pair sharing its chroma),
// RGB formats fill r, g, b; the other three fields are 0.
void UnpackRow(uint32_t format, const uint8_t* row, int width, Pixel* pixels);

// 8-bit R, G, B, A of width pixels of a row, for display.
void RowToRGBA(uint32_t format, const uint8_t* row, int width, bool hd, uint8_t* rgba);

}  // namespace Sim
}  // namespace KTN
