// A movie's timecode track: its counting from a recording's rate, its boxes, and its first frame's number.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "Movie/BoxReader.h"
#include "Movie/BoxWriter.h"
#include "Util/TimeCode.h"

namespace KTN {

// From its frame slot on (counted from 0 in the movie), a take's frames carry the timecode
// that runs on, one a slot, from text ("HH:MM:SS:FF", ';' before the frames at drop frame).
struct TimecodeRun {
  int64_t slot = 0;
  std::string text;
};

// QuickTime keeps a take's timecode as a track of its own ('tmcd'): one sample per unbroken
// run of the tape's timecode, the frame number of the run's first frame, lasting as many
// slots as the run, counted as its sample description says (rate, frames a second, drop
// frame). The picture track refers to it. A take without a break has one sample.
class TimecodeTrack {
 public:
  // Whether frames of frameDuration / timescale seconds are counted by a timecode of ours:
  // 23.976, 24, 25, 29.97, 30, 50, 59.94 or 60 frames a second.
  static bool CountableRate(uint32_t frameDuration, uint32_t timescale);

  // The timecode of a recording whose frames last frameDuration / timescale seconds, counted
  // with drop frames or not, starting at text ("HH:MM:SS:FF"); false when the rate is not
  // countable or the text is no timecode at that count (Util::TimecodeText::FrameAt).
  bool Set(uint32_t frameDuration, uint32_t timescale, bool dropFrame, const std::string& text);

  // After Set: from slot on the timecode runs on from text (a break of the tape's
  // timecode). False, and nothing kept, when text is no timecode at the count Set chose or
  // slot does not come after the last run's.
  bool AddRun(int64_t slot, const std::string& text);
  // Forgets the runs that start at or after the end of a movie lasting movieDuration (in
  // movieTimescale): a track's samples all lie within the movie. The first run stays.
  void EndAt(uint64_t movieDuration, uint32_t movieTimescale);

  // The first frame's number at the timecode's own count.
  uint32_t FirstFrame() const { return mRuns.empty() ? 0 : mRuns.front().frame; }
  // The samples: one a run.
  size_t Samples() const { return mRuns.size(); }
  // Appends the samples' bytes, 4 a run (its first frame's number), one after another.
  void WriteSamples(BoxWriter& out) const;

  // Writes the whole trak: track id, lasting movieDuration (in the movie's timescale
  // movieTimescale), its samples one after another from file offset sampleOffset.
  void WriteTrak(BoxWriter& out, uint32_t trackId, uint64_t movieDuration, uint32_t movieTimescale,
                 uint64_t sampleOffset) const;

  // The runs of the timecode track of the finished movie at path, as its samples say: each
  // sample's first slot (its decode time in frames of the track's count) and its timecode
  // as text. 0 (runs empty for a movie without a timecode track), or errno with one line;
  // 95 (EOPNOTSUPP) with one line for a movie that is not finished or whose track cannot be
  // read.
  static long ReadRuns(const std::string& path, std::vector<TimecodeRun>& runs);
  // The counting that the timecode sample description entry ('tmcd') of moov says: the
  // format of its rate and drop-frame flag, with the frame duration and timescale its frame
  // numbers count in; tcfUnknown when the entry is cut short or its rate is not countable.
  static Util::TimeCodeFormat ReadCounting(const std::vector<uint8_t>& moov, const Box& entry, uint32_t& frameDuration,
                                           uint32_t& timescale);

 private:
  struct Run {
    int64_t slot;
    uint32_t frame;  // the timecode's frame number at the run's first slot
  };
  // A movie's duration of movieDuration in movieTimescale, in the track's own timescale.
  uint64_t MediaDuration(uint64_t movieDuration, uint32_t movieTimescale) const;
  uint32_t mTimescale = 0;
  uint32_t mFrameDuration = 0;
  Util::TimeCodeFormat mFormat = Util::tcfUnknown;
  std::vector<Run> mRuns;  // by slot; the first at slot 0
};

}  // namespace KTN
