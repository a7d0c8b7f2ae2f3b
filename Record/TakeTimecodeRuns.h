// A take's timecode runs as its pictures are handed over, each break appended to the take's events sidecar at once.
#pragma once

#include <stdint.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Movie/TimecodeTrack.h"
#include "Signal/SlotTimecodes.h"

namespace KTN {

// The tape's timecode of a take runs on, one a frame slot, until it breaks: a picture whose
// timecode is not the one the previous picture's run gives its slot (counting the slots
// between them, so a slot dropped between two pictures is no break). Each run is kept as
// (slot, timecode) for the stamp, which writes one timecode sample per run, and each break
// is appended at once to the take's events sidecar (MOVIE.events) as one timecode-break line
// (Signal/SignalEvent.h). The sidecar is opened at the first break only as a regular file,
// to append, without blocking, and kept open until the take ends; the recording server
// appends its own lines to it, also with O_APPEND, so whole lines never interleave. A
// sidecar that cannot be written is said once and never fails the take. Host thread only;
// owns the sidecar's descriptor.
class TakeTimecodeRuns {
 public:
  TakeTimecodeRuns() = default;
  // Inline: whatever holds a capture instance need not link the recording pipeline.
  ~TakeTimecodeRuns() {
    if (mEvents >= 0) close(mEvents);
  }
  TakeTimecodeRuns(const TakeTimecodeRuns&) = delete;
  TakeTimecodeRuns& operator=(const TakeTimecodeRuns&) = delete;

  // A new take of the movie at moviePath, one slot lasting frameDuration / timescale seconds:
  // the last take's runs are forgotten and its sidecar closed.
  void Begin(const std::string& moviePath, uint32_t frameDuration, uint32_t timescale);
  // Whether a timecode counts the take's rate: when not, its pictures' timecodes keep no
  // runs and need not be read.
  bool Counting() const { return mCounting; }
  // The picture of slot (counted from 0 in the movie) carries the timecode text
  // ("HH:MM:SS:FF", ';' before the frames at drop frame; empty when it carries none, which
  // breaks nothing). Slots come in order. True when it breaks the run before it.
  bool Picture(int64_t slot, const std::string& text);
  // The runs so far: the first picture's, then one from each break.
  std::vector<TimecodeRun> Runs() const { return mSlots.Runs(); }
  // The runs from the breaks on (all but the first), as the stamp takes them.
  std::vector<TimecodeRun> Breaks() const;
  // The take is over: its sidecar is closed (the runs stay until the next Begin).
  void End();

 private:
  void Append(const std::string& line);

  std::string mMovie;
  uint32_t mFrameDuration = 0;
  uint32_t mTimescale = 0;
  bool mCounting = false;
  SlotTimecodes mSlots;     // the runs, and each slot's timecode from them
  int64_t mLastSlot = -1;   // the last picture with a timecode: slots come in order
  int mEvents = -1;         // the events sidecar, open to append once a break came
  bool mEventsFailed = false;  // said once; nothing more is written this take
};

}  // namespace KTN
