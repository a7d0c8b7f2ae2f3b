// Each slot's timecode from a take's runs.
#include "Signal/SlotTimecodes.h"

#include <algorithm>

#include "Movie/TimecodeTrack.h"
#include "Util/TimecodeText.h"

namespace KTN {

bool SlotTimecodes::Start(uint32_t frameDuration, uint32_t timescale, const std::string& startText, int64_t slot) {
  mRuns.clear();
  mFormat = Util::tcfUnknown;
  // Only the rates a timecode counts: any other would end the process in the conversions.
  if (!TimecodeTrack::CountableRate(frameDuration, timescale)) return false;
  // Drop frame when the start's text says so, as the movie's timecode track counts.
  mFormat = Util::tcfFromDuration(frameDuration, timescale, startText.size() > 8 && startText[8] == ';', -1);
  AddRun(slot, startText);
  if (!Known()) mFormat = Util::tcfUnknown;
  return Known();
}

int64_t SlotTimecodes::FrameOf(const std::string& text) const {
  return Util::TimecodeText::FrameAt(text, mFormat);
}

void SlotTimecodes::AddRun(int64_t slot, const std::string& text) {
  const int64_t frame = FrameOf(text);
  if (frame < 0 || slot < 0) return;
  auto at = std::lower_bound(mRuns.begin(), mRuns.end(), slot, [](const Run& run, int64_t s) { return run.slot < s; });
  if (at != mRuns.end() && at->slot == slot) {
    at->frame = static_cast<int>(frame);
  } else {
    mRuns.insert(at, Run{slot, static_cast<int>(frame)});
  }
}

int64_t SlotTimecodes::Frame(int64_t slot) const {
  if (mRuns.empty() || slot < 0) return -1;
  auto after = std::upper_bound(mRuns.begin(), mRuns.end(), slot, [](int64_t s, const Run& run) { return s < run.slot; });
  const Run& run = after == mRuns.begin() ? mRuns.front() : *(after - 1);
  const int64_t day = Util::CTimeCode::LargestFrameCountBeforeTimeCodeWraps(mFormat);  // the frames of a day
  int64_t frame = (run.frame + (slot - run.slot)) % day;
  if (frame < 0) frame += day;
  return frame;
}

std::string SlotTimecodes::Text(int64_t slot) const {
  const int64_t frame = Frame(slot);
  if (frame < 0) return std::string();
  return Util::CTimeCode::FromFrame(mFormat, static_cast<int>(frame), mFormat).ToString(false);
}

void SlotTimecodes::AddBreaks(const std::vector<SignalEvent>& events) {
  for (const SignalEvent& event : events) {
    if (event.kind == SignalEvent::Kind::kTimecodeBreak) AddRun(event.slot, event.after);
  }
}

std::vector<TimecodeRun> SlotTimecodes::Runs() const {
  std::vector<TimecodeRun> runs;
  for (const Run& run : mRuns) runs.push_back(TimecodeRun{run.slot, Text(run.slot)});
  return runs;
}

}  // namespace KTN
