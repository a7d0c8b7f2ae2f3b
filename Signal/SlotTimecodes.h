// The timecode the tape gave each frame slot of a take: its first slot's, and where it broke.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "Movie/TimecodeTrack.h"
#include "Signal/SignalEvent.h"
#include "Util/TimeCode.h"

namespace KTN {

// A take's timecode runs from its first frame's, one a slot, until the tape's timecode
// breaks; from there it runs on from the timecode the break came to. Runs come from the
// take's timecode-break events (live) or from its timecode track's samples (finished).
// Counted at the picture rate of frameDuration / timescale seconds a slot, drop frame when
// the start's text says so (';'). A value type; any thread.
class SlotTimecodes {
 public:
  SlotTimecodes() = default;
  // The first run: from slot on (the take's first slot unless its first pictures carried no
  // timecode), the timecode runs on from startText. False (and nothing known) for a rate no
  // timecode counts or a start that is no timecode.
  bool Start(uint32_t frameDuration, uint32_t timescale, const std::string& startText, int64_t slot = 0);
  // From slot on, the timecode runs on from text (a break's "after"); ignored when unknown
  // or not a timecode. Runs may come in any order.
  void AddRun(int64_t slot, const std::string& text);
  bool Known() const { return !mRuns.empty(); }
  // The frame number of text at the runs' counting (Util::TimecodeText::FrameAt); -1 when
  // nothing is known or it is no timecode there.
  int64_t FrameOf(const std::string& text) const;

  // The frame number the runs give slot, at their counting; -1 when none is known.
  int64_t Frame(int64_t slot) const;
  // The timecode of slot ("HH:MM:SS:FF", ';' at drop frame); "" when none is known.
  std::string Text(int64_t slot) const;
  // AddRun at each timecode break among events (from its slot, on from its "after"); the
  // other events are passed over.
  void AddBreaks(const std::vector<SignalEvent>& events);
  // The runs by slot: each one's first slot and its timecode there.
  std::vector<TimecodeRun> Runs() const;

 private:
  struct Run {
    int64_t slot;
    int frame;  // the timecode's frame count at the run's first slot
  };
  Util::TimeCodeFormat mFormat = Util::tcfUnknown;
  std::vector<Run> mRuns;  // sorted by slot
};

}  // namespace KTN
