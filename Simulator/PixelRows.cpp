// Rows of the card's pixel formats.
#include "Simulator/PixelRows.h"

#include <math.h>
#include <string.h>

#include <algorithm>

#include "DeviceAPI/VeldranAPI.h"
#include "Util/RowBytes.h"

namespace KTN {
namespace Sim {

namespace {

uint16_t Clamp10(double value) {
  return static_cast<uint16_t>(std::min(1023.0, std::max(0.0, std::round(value))));
}

uint8_t High8(uint16_t value10) {
  return static_cast<uint8_t>(value10 >> 2);
}

void WriteLE32(uint8_t* out, uint32_t word) {
  out[0] = static_cast<uint8_t>(word);
  out[1] = static_cast<uint8_t>(word >> 8);
  out[2] = static_cast<uint8_t>(word >> 16);
  out[3] = static_cast<uint8_t>(word >> 24);
}

uint32_t ReadLE32(const uint8_t* in) {
  return static_cast<uint32_t>(in[0]) | static_cast<uint32_t>(in[1]) << 8 | static_cast<uint32_t>(in[2]) << 16 |
         static_cast<uint32_t>(in[3]) << 24;
}

}  // namespace

Pixel ColourPixel(double r, double g, double b, bool hd) {
  // Luma weights and the chroma scale factors 2(1 - Kb), 2(1 - Kr).
  const double kr = hd ? 0.2126 : 0.299;
  const double kb = hd ? 0.0722 : 0.114;
  double luma = kr * r + (1 - kr - kb) * g + kb * b;
  double pb = (b - luma) / (2 * (1 - kb));
  double pr = (r - luma) / (2 * (1 - kr));
  Pixel pixel;
  pixel.y = Clamp10(64 + 876 * luma);
  pixel.cb = Clamp10(512 + 896 * pb);
  pixel.cr = Clamp10(512 + 896 * pr);
  pixel.r = Clamp10(1023 * r);
  pixel.g = Clamp10(1023 * g);
  pixel.b = Clamp10(1023 * b);
  return pixel;
}

uint64_t FrameRowBytes(uint32_t format, int width) {
  if (format == ktnFormat8BitARGB || format == ktnFormat8BitBGRA) return static_cast<uint64_t>(width) * 4;
  return Util::RowBytes(format, static_cast<uint32_t>(width));
}

void PackRow(uint32_t format, const Pixel* pixels, int width, uint8_t* row) {
  memset(row, 0, FrameRowBytes(format, width));
  switch (format) {
    case ktnFormat8BitYUV:  // Cb Y0 Cr Y1
      for (int x = 0; x + 1 < width; x += 2) {
        row[x * 2] = High8(pixels[x].cb);
        row[x * 2 + 1] = High8(pixels[x].y);
        row[x * 2 + 2] = High8(pixels[x].cr);
        row[x * 2 + 3] = High8(pixels[x + 1].y);
      }
      break;
    case ktnFormat10BitYUV: {  // six pixels in four little-endian words
      auto y = [&](int x) { return x < width ? pixels[x].y : pixels[width - 1].y; };
      auto cb = [&](int x) { return x < width ? pixels[x].cb : pixels[width - 1].cb; };
      auto cr = [&](int x) { return x < width ? pixels[x].cr : pixels[width - 1].cr; };
      for (int x = 0; x < width; x += 6) {
        uint8_t* group = row + x / 6 * 16;
        WriteLE32(group, cb(x) | static_cast<uint32_t>(y(x)) << 10 | static_cast<uint32_t>(cr(x)) << 20);
        WriteLE32(group + 4, y(x + 1) | static_cast<uint32_t>(cb(x + 2)) << 10 | static_cast<uint32_t>(y(x + 2)) << 20);
        WriteLE32(group + 8, cr(x + 2) | static_cast<uint32_t>(y(x + 3)) << 10 | static_cast<uint32_t>(cb(x + 4)) << 20);
        WriteLE32(group + 12, y(x + 4) | static_cast<uint32_t>(cr(x + 4)) << 10 | static_cast<uint32_t>(y(x + 5)) << 20);
      }
      break;
    }
    case ktnFormat10BitRGB:  // big-endian 00RRRRRRRRRRGGGGGGGGGGBBBBBBBBBB
      for (int x = 0; x < width; ++x) {
        uint32_t word = static_cast<uint32_t>(pixels[x].r) << 20 | static_cast<uint32_t>(pixels[x].g) << 10 | pixels[x].b;
        row[x * 4] = static_cast<uint8_t>(word >> 24);
        row[x * 4 + 1] = static_cast<uint8_t>(word >> 16);
        row[x * 4 + 2] = static_cast<uint8_t>(word >> 8);
        row[x * 4 + 3] = static_cast<uint8_t>(word);
      }
      break;
    case ktnFormat8BitARGB:
    case ktnFormat8BitBGRA:
      for (int x = 0; x < width; ++x) {
        uint8_t a = 255, r = High8(pixels[x].r), g = High8(pixels[x].g), b = High8(pixels[x].b);
        uint8_t* out = row + x * 4;
        if (format == ktnFormat8BitARGB) {
          out[0] = a, out[1] = r, out[2] = g, out[3] = b;
        } else {
          out[0] = b, out[1] = g, out[2] = r, out[3] = a;
        }
      }
      break;
    default:
      break;
  }
}

void UnpackRow(uint32_t format, const uint8_t* row, int width, Pixel* pixels) {
  memset(pixels, 0, sizeof(Pixel) * static_cast<size_t>(width));
  switch (format) {
    case ktnFormat8BitYUV:
      for (int x = 0; x + 1 < width; x += 2) {
        uint16_t cb = static_cast<uint16_t>(row[x * 2] << 2), cr = static_cast<uint16_t>(row[x * 2 + 2] << 2);
        pixels[x].cb = pixels[x + 1].cb = cb;
        pixels[x].cr = pixels[x + 1].cr = cr;
        pixels[x].y = static_cast<uint16_t>(row[x * 2 + 1] << 2);
        pixels[x + 1].y = static_cast<uint16_t>(row[x * 2 + 3] << 2);
      }
      break;
    case ktnFormat10BitYUV:
      for (int x = 0; x < width; x += 6) {
        const uint8_t* group = row + x / 6 * 16;
        uint32_t w[4] = {ReadLE32(group), ReadLE32(group + 4), ReadLE32(group + 8), ReadLE32(group + 12)};
        auto field = [&](int word, int shift) { return static_cast<uint16_t>((w[word] >> shift) & 0x3ff); };
        const uint16_t ys[6] = {field(0, 10), field(1, 0), field(1, 20), field(2, 10), field(3, 0), field(3, 20)};
        const uint16_t cbs[3] = {field(0, 0), field(1, 10), field(2, 20)};
        const uint16_t crs[3] = {field(0, 20), field(2, 0), field(3, 10)};
        for (int i = 0; i < 6 && x + i < width; ++i) {
          pixels[x + i].y = ys[i];
          pixels[x + i].cb = cbs[i / 2];
          pixels[x + i].cr = crs[i / 2];
        }
      }
      break;
    case ktnFormat10BitRGB:
      for (int x = 0; x < width; ++x) {
        uint32_t word = static_cast<uint32_t>(row[x * 4]) << 24 | static_cast<uint32_t>(row[x * 4 + 1]) << 16 |
                        static_cast<uint32_t>(row[x * 4 + 2]) << 8 | row[x * 4 + 3];
        pixels[x].r = static_cast<uint16_t>((word >> 20) & 0x3ff);
        pixels[x].g = static_cast<uint16_t>((word >> 10) & 0x3ff);
        pixels[x].b = static_cast<uint16_t>(word & 0x3ff);
      }
      break;
    case ktnFormat8BitARGB:
    case ktnFormat8BitBGRA:
      for (int x = 0; x < width; ++x) {
        const uint8_t* in = row + x * 4;
        bool argb = format == ktnFormat8BitARGB;
        pixels[x].r = static_cast<uint16_t>((argb ? in[1] : in[2]) << 2);
        pixels[x].g = static_cast<uint16_t>((argb ? in[2] : in[1]) << 2);
        pixels[x].b = static_cast<uint16_t>((argb ? in[3] : in[0]) << 2);
      }
      break;
    default:
      break;
  }
}

void RowToRGBA(uint32_t format, const uint8_t* row, int width, bool hd, uint8_t* rgba) {
  static thread_local Pixel sPixels[8192];
  int count = std::min(width, 8192);
  UnpackRow(format, row, count, sPixels);
  bool yuv = format == ktnFormat8BitYUV || format == ktnFormat10BitYUV;
  const double kr = hd ? 0.2126 : 0.299;
  const double kb = hd ? 0.0722 : 0.114;
  for (int x = 0; x < count; ++x) {
    double r, g, b;
    if (yuv) {
      double luma = (sPixels[x].y - 64) / 876.0;
      double pb = (sPixels[x].cb - 512) / 896.0;
      double pr = (sPixels[x].cr - 512) / 896.0;
      r = luma + 2 * (1 - kr) * pr;
      b = luma + 2 * (1 - kb) * pb;
      g = (luma - kr * r - kb * b) / (1 - kr - kb);
    } else {
      r = sPixels[x].r / 1023.0;
      g = sPixels[x].g / 1023.0;
      b = sPixels[x].b / 1023.0;
    }
    rgba[x * 4] = static_cast<uint8_t>(std::min(255.0, std::max(0.0, std::round(r * 255))));
    rgba[x * 4 + 1] = static_cast<uint8_t>(std::min(255.0, std::max(0.0, std::round(g * 255))));
    rgba[x * 4 + 2] = static_cast<uint8_t>(std::min(255.0, std::max(0.0, std::round(b * 255))));
    rgba[x * 4 + 3] = 255;
  }
}

}  // namespace Sim
}  // namespace KTN
