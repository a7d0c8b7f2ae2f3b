// A movie's tracks as its moov describes them: ID, media, timescale, where their boxes lie and their fragments' defaults.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "Movie/BoxReader.h"

namespace KTN {

// One track of a movie.
struct TrackDescription {
  uint32_t id = 0;
  uint32_t handler = 0;    // Handlers::kPicture, kSound, kTimecode, or another media's
  uint32_t timescale = 0;  // of its media: units a second
  // Where its boxes lie in the moov's bytes (a size of 0: the track has none).
  Box trak, tkhd, mdia, mdhd, hdlr, minf, stbl, stsd;
  // What the samples of its fragments take where a fragment does not say (its trex).
  uint32_t defaultDescription = 1;
  uint32_t defaultDuration = 0;
  uint32_t defaultSize = 0;
  uint32_t defaultFlags = 0;
  // Its header, media header and handler were all read, with an ID and a timescale: a
  // track whose samples can be placed and timed.
  bool complete = false;
};

// Read from the bytes of one moov (borrowed only while Read runs); the boxes' offsets are
// in those bytes. Not thread-safe; a value.
class MovieTracks {
 public:
  std::vector<TrackDescription> tracks;  // one for each trak, in order, complete or not
  bool defaultsRead = true;              // the fragments' defaults (mvex, trex), where there are any, read whole

  // Reads the tracks of moov, which lies in bytes. False when the moov's own boxes cannot
  // be told apart (it then has no track).
  bool Read(const std::vector<uint8_t>& bytes, const Box& moov);

  // Whether there is a track, every one is complete with an ID of its own, and the
  // fragments' defaults were read: a movie whose every sample can be indexed.
  bool AllComplete() const;
  // The index in tracks of the first track of ID id, or -1 (always for 0, which no track has).
  int Find(uint32_t id) const;
  // The description of the trak at trak's offset, or null.
  const TrackDescription* ForTrak(const Box& trak) const;
};

}  // namespace KTN
