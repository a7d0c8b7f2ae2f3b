// Brings a repaired take's sidecar into line with the movie: the lines beyond its last whole sample go, its last picture gets its duration.
#pragma once

#include <stdint.h>

#include <string>

namespace KTN {

// A take cut off (its writer killed, its disk pulled) leaves a sidecar that describes every
// whole sample of the movie and at most the sample being written, whose fragment repair
// leaves out; and its last picture's line holds the duration known when it was written,
// while the finished movie may hold that picture longer. Trimming keeps each line that
// describes a packet of the finished movie (its stream, time and size), gives a picture's
// line the duration the movie gives it, and drops the rest. It never hashes the movie's
// bytes again: that would certify whatever the disk holds now. Stateless; any thread.
class SidecarTrim {
 public:
  struct Result {
    bool changed = false;         // the sidecar was rewritten
    uint64_t dropped = 0;         // lines that described no packet of the movie
    uint64_t undescribed = 0;     // packets of the movie without a line
  };
  // Trims the sidecar of the finished movie at moviePath, if it has one: 0 (a movie without
  // a sidecar included), or errno with one failure line.
  static long Trim(const std::string& moviePath, Result& result);
};

}  // namespace KTN
