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
  if (mFormat == Util::tcfUnknown || slot < 0) return;
  Util::TimeCode tc = {};
  const int fps = Util::tcfToTps(mFormat);
  if (!Util::TimecodeText::Parse(text, static_cast<unsigned>(fps), Util::tcfIsDrop(mFormat), tc, nullptr)) return;
  const int frame = Util::CTimeCode::FromNumbers(mFormat, tc.hours, tc.minutes, tc.seconds, tc.frames).ToFrame(mFormat);
  auto at = std::lower_bound(mRuns.begin(), mRuns.end(), slot, [](const Run& run, int64_t s) { return run.slot < s; });
  if (at != mRuns.end() && at->slot == slot) {
    at->frame = frame;
  } else {
    mRuns.insert(at, Run{slot, frame});
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
