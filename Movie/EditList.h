// A track's edit list: the track plays from its first sample for its whole duration.
#pragma once

#include <stdint.h>

#include "Movie/BoxWriter.h"

namespace KTN {

// Readers that find no edit may stretch a track to the movie's length or start it late;
// every track this system indexes says plainly that it plays its media from the start.
class EditList {
 public:
  // Writes an edts holding one edit: the media from time 0, at rate 1, for duration (in the
  // movie's timescale; 64-bit fields when it needs them). False when a box outgrew its size.
  static bool Write(BoxWriter& out, uint64_t duration);
};

}  // namespace KTN
