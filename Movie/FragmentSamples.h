// The samples of one fragment of a movie (its moof and its mdat's bytes), handed one by one to a visitor.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "Movie/MovieTracks.h"

namespace KTN {

// One sample as its fragment and its track's defaults place it.
struct FragmentSample {
  size_t track = 0;          // in MovieTracks::tracks
  uint64_t offset = 0;       // of its bytes in the file
  uint32_t size = 0;         // bytes
  uint32_t duration = 0;     // in its track's timescale
  uint64_t decodeTime = 0;   // likewise
  bool sync = true;          // playing can start at it (a key frame)
  uint32_t description = 1;  // its sample description, counted from 1
  uint32_t runSamples = 0;   // for the first sample of a run (trun): the run's samples; 0 for the others
};

// Reads a moof's track fragments (tfhd, tfdt, trun, with every flag combination) against the
// movie's tracks. A fragment is checked whole before its first sample is handed over, so a
// fragment it cannot describe hands over nothing, and its caller decides what that means
// (the in-place index refuses the movie; the follower counts the fragment as holding no
// sample). The work is bounded by the bytes read, not by counts read from them: a run holds
// at most as many samples as its fields' bytes and its mdat's bytes allow.
class FragmentSamples {
 public:
  enum class Status {
    kRead,          // every sample was handed to the visitor
    kMalformed,     // a box runs past its parent, a field past its box, or a traf has no tfhd
    kUnknownTrack,  // a traf names a track the movie does not have
    kOutsideData,   // a sample lies outside the fragment's mdat
    kReordered,     // a sample is shown at another time than it is decoded (a composition offset)
  };

  // Called on the thread of Walk, in the order of the fragment's samples.
  class Visitor {
   public:
    virtual ~Visitor() = default;
    // Where track's next sample starts when a fragment does not say (it has no tfdt): the
    // end of its samples visited so far.
    virtual uint64_t NextDecodeTime(size_t track) = 0;
    virtual void Sample(const FragmentSample& sample) = 0;
  };

  // Walks the samples of moof, the bytes of one moof box that lies at moofOffset in the file
  // (the base of its data offsets unless it gives its own), whose samples must lie in bytes
  // [dataBegin, dataEnd) of the file.
  static Status Walk(const std::vector<uint8_t>& moof, uint64_t moofOffset, uint64_t dataBegin, uint64_t dataEnd,
                     const MovieTracks& tracks, Visitor& visitor);

  // Why a fragment could not be described, for a failure line: "it names a track the movie
  // does not have" ...
  static const char* Why(Status status);
};

}  // namespace KTN
