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
  Util::TimeCode tc = {};
  if (!Util::TimecodeText::ParseAtPictureRate(startText, frameDuration, timescale, tc, nullptr)) return false;
  mFormat = Util::tcfFromDuration(frameDuration, timescale, tc.dropFrame != 0, -1);
  if (mFormat == Util::tcfUnknown) return false;
  AddRun(slot, startText);
  return Known();
}

void SlotTimecodes::AddRun(int64_t slot, const std::string& text) {
  const int64_t frame = Util::TimecodeText::FrameAt(text, mFormat);
  if (frame < 0 || slot < 0) return;
  auto at = std::lower_bound(mRuns.begin(), mRuns.end(), slot, [](const Run& run, int64_t s) { return run.slot < s; });
  if (at != mRuns.end() && at->slot == slot) {
    at->frame = static_cast<int>(frame);
  } else {
    mRuns.insert(at, Run{slot, static_cast<int>(frame)});
  }
}

std::string SlotTimecodes::Text(int64_t slot) const {
  if (mRuns.empty() || slot < 0) return std::string();
  auto after = std::upper_bound(mRuns.begin(), mRuns.end(), slot, [](int64_t s, const Run& run) { return s < run.slot; });
  const Run& run = after == mRuns.begin() ? mRuns.front() : *(after - 1);
  const int64_t day = Util::CTimeCode::LargestFrameCountBeforeTimeCodeWraps(mFormat);  // the frames of a day
  int64_t frame = (run.frame + (slot - run.slot)) % day;
  if (frame < 0) frame += day;
  return Util::CTimeCode::FromFrame(mFormat, static_cast<int>(frame), mFormat).ToString(false);
}

}  // namespace KTN
