// A picture's luma measured on a sparse grid as its bytes pass, and its change from the picture before.
#pragma once

#include <stdint.h>

#include <vector>

#include "Signal/SlotLevels.h"

namespace KTN {

// What one picture measured, for the slot's levels line and for finding black and frozen
// pictures.
struct PictureReading {
  PictureLevels levels;
  double blackShare = 0;  // of the grid's points at or below the black threshold, 0..1
  double change = 0;      // the grid's mean absolute difference from the picture before, 0..1 of full scale
};

// Reads the luma of the card's rows ('2vuy', 'v210' in video range; 'r210' in full range,
// as BT.709 weighs its colours) at a grid of points: every 8th row (even and odd rows in
// turn, so both fields count) and every 6th pixel, about 43,000 points of an HD picture.
// The bytes come in pieces in any order (a megabyte at a time as the server writes them),
// so the picture is measured without another pass over it. A point is black as FFmpeg's
// blackdetect has it by default: at most 10% of the way from black to white. Formats it
// cannot read measure nothing (Measures() is false). Used by one thread at a time.
class PictureMeter {
 public:
  // rows of rowBytes bytes each, width pixels wide, in pixelFormat (a four-character code).
  PictureMeter(uint32_t pixelFormat, int width, int rows, uint64_t rowBytes);

  bool Measures() const { return mStep != 0; }

  // Bytes [offset, offset + size) of the picture's rows. A picture needs no start: every
  // point of the grid is written by the bytes of each picture, so one whose bytes never all
  // came and that is never ended leaves nothing the next keeps.
  void Update(uint64_t offset, const uint8_t* data, size_t size);
  // Ends the picture as frame slot slot: its reading, and it becomes the one the next is
  // compared with.
  PictureReading End(int64_t slot);

 private:
  uint32_t mFormat;
  uint64_t mRowBytes;
  uint32_t mStep = 0;       // bytes between the grid's points on a row (0: no format of ours)
  uint32_t mPointsPerRow = 0;
  uint32_t mGridRows = 0;
  bool mFullRange = false;
  int mBlack = 0, mWhite = 0, mFullScale = 0;  // code values
  int mBlackThreshold = 0;
  std::vector<uint16_t> mGrid;      // the picture being measured, row by row
  std::vector<uint16_t> mPrevious;  // the last picture ended
  bool mHasPrevious = false;
};

}  // namespace KTN
