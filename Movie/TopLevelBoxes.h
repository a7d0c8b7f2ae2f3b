// The boxes at the top of a movie file, walked once, and what their order says of the movie's state.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "Movie/BoxReader.h"

namespace KTN {

class MovieFile;

// A take is written as [ftyp][moov without samples]([moof][mdat])...; finishing it appends a
// moov that indexes every sample and hides the fragment headers and the first moov (free
// boxes); stamping appends a moov and hides the one before. Which of these states a movie is
// in shows in its top-level boxes alone.
struct TopLevelBoxes {
  std::vector<Box> boxes;  // in order, as far as they are whole
  bool cut = false;        // a box ran past the end of the file and ended the walk

  // Walks the boxes of file from the one at offset from (0: the first). A box that runs past
  // the end (the tail of a take cut off, or a fragment still being written) ends the walk.
  // 0, or errno with one failure line.
  long Read(MovieFile& file, uint64_t from = 0);

  size_t Count(uint32_t type) const;
  // Whether the movie still needs its finish: it is laid out as fragments (a moof), or a
  // finish or a stamp was cut off before it hid the movie header it replaced (two moovs).
  bool Unfinished() const { return Count(BoxTypes::kMoof) > 0 || Count(BoxTypes::kMoov) > 1; }

  // Reads the movie's last moov whole from file into bytes, and describes it in whole as the
  // box that starts them (offset 0), as MovieTracks and BoxReader::Children take it; at,
  // when given, is where it lies in the file. 0, 22 (EINVAL) when there is none, or errno
  // with one failure line. The caller checks first that the movie is finished (one moov).
  long ReadMovieBox(MovieFile& file, std::vector<uint8_t>& bytes, Box& whole, uint64_t* at = nullptr) const;
};

}  // namespace KTN
