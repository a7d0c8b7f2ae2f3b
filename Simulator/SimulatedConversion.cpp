// Picture conversion between the simulated card's pixel formats.
#include "Simulator/SimulatedConversion.h"

#include <stddef.h>

#include <vector>

#include "Simulator/PixelRows.h"

namespace KTN {
namespace Sim {

VeldranResult SimulatedConversion::ConvertFrame(IVeldranVideoFrame* source, IVeldranVideoFrame* destination) {
  if (!source || !destination) return kVeldranInvalidArg;
  int width = source->GetWidth(), height = source->GetHeight();
  if (width != destination->GetWidth() || height != destination->GetHeight() || width <= 0 || width > 8192) {
    return kVeldranInvalidArg;
  }
  void* in = nullptr;
  void* out = nullptr;
  if (source->GetBytes(&in) || destination->GetBytes(&out)) return kVeldranFail;
  uint32_t from = source->GetPixelFormat(), to = destination->GetPixelFormat();
  if (!FrameRowBytes(from, width) || !FrameRowBytes(to, width)) return kVeldranInvalidArg;
  bool hd = height > 576;
  std::vector<uint8_t> rgba(static_cast<size_t>(width) * 4);
  std::vector<Pixel> pixels(static_cast<size_t>(width));
  for (int y = 0; y < height; ++y) {
    RowToRGBA(from, static_cast<const uint8_t*>(in) + static_cast<size_t>(y) * source->GetRowBytes(), width, hd, rgba.data());
    for (int x = 0; x < width; ++x) {
      pixels[x] = ColourPixel(rgba[x * 4] / 255.0, rgba[x * 4 + 1] / 255.0, rgba[x * 4 + 2] / 255.0, hd);
    }
    PackRow(to, pixels.data(), width, static_cast<uint8_t*>(out) + static_cast<size_t>(y) * destination->GetRowBytes());
  }
  return kVeldranOK;
}

}  // namespace Sim
}  // namespace KTN
