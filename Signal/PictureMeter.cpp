// Luma on a sparse grid of the card's rows.
#include "Signal/PictureMeter.h"

#include <math.h>
#include <stdlib.h>

#include <algorithm>

#include "Util/FourCC.h"

namespace KTN {
namespace {

constexpr int kRowStep = 8;    // every 8th row
constexpr int kPixelStep = 6;  // every 6th pixel: a 'v210' group's first luma

// The grid's rows: 8 apart, alternately even and odd, so that both fields of an interlaced
// picture count.
int GridRow(uint32_t index) { return static_cast<int>(index) * kRowStep + (index % 2 ? 5 : 2); }

}  // namespace

PictureMeter::PictureMeter(uint32_t pixelFormat, int width, int rows, uint64_t rowBytes)
    : mFormat(pixelFormat), mRowBytes(rowBytes) {
  if (width < kPixelStep || rows < kRowStep || !rowBytes) return;
  if (pixelFormat == Util::FourCC("2vuy")) {
    mStep = 2 * kPixelStep;
    mBlack = 16, mWhite = 235, mFullScale = 255;
  } else if (pixelFormat == Util::FourCC("v210")) {
    mStep = 16;
    mBlack = 64, mWhite = 940, mFullScale = 1023;
  } else if (pixelFormat == Util::FourCC("r210")) {
    mStep = 4 * kPixelStep;
    mBlack = 0, mWhite = 1023, mFullScale = 1023;
    mFullRange = true;
  } else {
    return;
  }
  mPointsPerRow = static_cast<uint32_t>(width / kPixelStep);
  while (GridRow(mGridRows) < rows) ++mGridRows;
  // FFmpeg's blackdetect: a pixel is black at or below 10% of the way from black to white.
  mBlackThreshold = mBlack + (mWhite - mBlack) / 10;
  mGrid.assign(static_cast<size_t>(mPointsPerRow) * mGridRows, 0);
}

void PictureMeter::Update(uint64_t offset, const uint8_t* data, size_t size) {
  if (!mStep || !size) return;
  const uint64_t end = offset + size;
  // The grid rows this piece reaches.
  uint32_t gridRow = static_cast<uint32_t>(offset / mRowBytes / kRowStep);
  if (gridRow) --gridRow;
  for (; gridRow < mGridRows; ++gridRow) {
    const uint64_t rowStart = static_cast<uint64_t>(GridRow(gridRow)) * mRowBytes;
    if (rowStart >= end) break;
    const uint64_t rowEnd = rowStart + static_cast<uint64_t>(mPointsPerRow) * mStep;
    if (rowEnd <= offset) continue;
    // The row's points that lie whole in the piece.
    uint32_t first = rowStart >= offset ? 0 : static_cast<uint32_t>((offset - rowStart + mStep - 1) / mStep);
    uint16_t* out = mGrid.data() + static_cast<size_t>(gridRow) * mPointsPerRow;
    for (uint32_t j = first; j < mPointsPerRow; ++j) {
      const uint64_t at = rowStart + static_cast<uint64_t>(j) * mStep;
      if (at + 4 > end) break;
      const uint8_t* p = data + (at - offset);
      uint32_t value;
      if (mFormat == Util::FourCC("2vuy")) {
        value = p[1];  // U Y V Y: the first pixel's luma
      } else if (mFormat == Util::FourCC("v210")) {
        const uint32_t word = p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24;
        value = (word >> 10) & 0x3ff;  // Cb Y Cr: the group's first luma
      } else {
        const uint32_t word = static_cast<uint32_t>(p[0]) << 24 | p[1] << 16 | p[2] << 8 | p[3];
        const uint32_t r = (word >> 20) & 0x3ff, g = (word >> 10) & 0x3ff, b = word & 0x3ff;
        // BT.709's weights: 0.2126, 0.7152 and 0.0722.
        value = (2126 * r + 7152 * g + 722 * b + 5000) / 10000;
      }
      out[j] = static_cast<uint16_t>(value);
    }
  }
}

PictureReading PictureMeter::End(int64_t slot) {
  PictureReading reading;
  reading.levels.slot = slot;
  if (!mStep || mGrid.empty()) return reading;
  uint64_t sum = 0, black = 0, difference = 0;
  int lowest = mFullScale, highest = 0;
  for (size_t i = 0; i < mGrid.size(); ++i) {
    const int value = mGrid[i];
    sum += static_cast<uint64_t>(value);
    lowest = std::min(lowest, value);
    highest = std::max(highest, value);
    if (value <= mBlackThreshold) ++black;
    if (mHasPrevious) difference += static_cast<uint64_t>(abs(value - static_cast<int>(mPrevious[i])));
  }
  const double points = static_cast<double>(mGrid.size());
  const double range = mWhite - mBlack;
  auto percent = [&](double code) { return static_cast<float>((code - mBlack) * 100.0 / range); };
  reading.levels.mean = percent(static_cast<double>(sum) / points);
  reading.levels.minimum = percent(lowest);
  reading.levels.maximum = percent(highest);
  reading.blackShare = static_cast<double>(black) / points;
  if (mHasPrevious) {
    reading.change = static_cast<double>(difference) / points / mFullScale;
    reading.levels.hasChange = true;
    reading.levels.changeDb = reading.change > 0 ? static_cast<float>(20 * log10(reading.change)) : -INFINITY;
  }
  mPrevious.swap(mGrid);
  mGrid.resize(mPrevious.size());
  mHasPrevious = true;
  return reading;
}

}  // namespace KTN
