// A movie's timecode track: its counting from a recording's rate, its boxes, and its first frame's number.
#pragma once

#include <stdint.h>

#include <string>

#include "Movie/BoxWriter.h"
#include "Util/TimeCode.h"

namespace KTN {

// QuickTime keeps a take's timecode as a track of its own ('tmcd'): one sample, the frame
// number of the first frame, counted as its sample description says (rate, frames a
// second, drop frame). The picture track refers to it.
class TimecodeTrack {
 public:
  // Whether frames of frameDuration / timescale seconds are counted by a timecode of ours:
  // 23.976, 24, 25, 29.97, 30, 50, 59.94 or 60 frames a second.
  static bool CountableRate(uint32_t frameDuration, uint32_t timescale);

  // The timecode of a recording whose frames last frameDuration / timescale seconds, counted
  // with drop frames or not, starting at text ("HH:MM:SS:FF"); false when the rate is not
  // countable or the text is no timecode.
  bool Set(uint32_t frameDuration, uint32_t timescale, bool dropFrame, const std::string& text);

  // The sample: the first frame's number at the timecode's own count.
  uint32_t FirstFrame() const { return mFirstFrame; }

  // Writes the whole trak: track id, lasting movieDuration (in the movie's timescale
  // movieTimescale), its one sample at file offset sampleOffset.
  void WriteTrak(BoxWriter& out, uint32_t trackId, uint64_t movieDuration, uint32_t movieTimescale,
                 uint64_t sampleOffset) const;

 private:
  uint32_t mTimescale = 0;
  uint32_t mFrameDuration = 0;
  uint32_t mFramesPerSecond = 0;
  bool mDropFrame = false;
  uint32_t mFirstFrame = 0;
};

}  // namespace KTN
