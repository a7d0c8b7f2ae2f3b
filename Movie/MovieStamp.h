// Stamps what only the host side knows into a finished movie, in place: its pictures' field order and its timecode track.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "Movie/TimecodeTrack.h"

namespace KTN {

// The recording server writes what it knows of a take; the host side knows the signal (the
// card says which field comes first) and the timecode its first frame carried. Apply gives
// the finished movie a new index with those facts: the index is written after the movie's
// last box and synced before the old one is hidden, so a movie cut off at any step still
// reads (with the old index, or with the new), and repair completes a stamp cut off between
// the two. Only the index and four bytes of timecode a run are written; no sample moves.
struct MovieStamp {
  enum class Fields { kKeep, kProgressive, kTopFirst, kBottomFirst };

  // The pictures' field order, stamped only where the movie says none (a codec's own order,
  // as DV's, and what the server knew stay).
  Fields fields = Fields::kKeep;
  // The first frame's timecode ("HH:MM:SS:FF", ';' before the frames at drop frame); none
  // when empty. Counted at the recording's rate, frameDuration / timescale seconds a frame.
  std::string startTimecode;
  uint32_t frameDuration = 0;
  uint32_t timescale = 0;
  // Where the tape's timecode broke, in slot order after slot 0: from each run's slot on the
  // frames carry the timecode that runs on from its text. One timecode sample is written
  // per unbroken run; runs from the movie's end on, and any that cannot be counted, are
  // left out. Only with startTimecode.
  std::vector<TimecodeRun> timecodeBreaks;

  // 0; 95 (EOPNOTSUPP) with one line for a movie that is not finished (its fragments are
  // given their index first) or a timecode that cannot be counted; or errno with one line.
  long Apply(const std::string& path) const;
};

}  // namespace KTN
