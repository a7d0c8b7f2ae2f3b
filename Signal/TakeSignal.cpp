// A take's events and levels, read from its sidecars as they grow.
#include "Signal/TakeSignal.h"

#include <algorithm>
#include <tuple>

#include "Movie/MovieSidecars.h"

namespace KTN {

TakeSignal::TakeSignal(const std::string& moviePath)
    : mEventLines(MovieSidecars::Events(moviePath)), mLevelLines(MovieSidecars::Levels(moviePath)) {}

long TakeSignal::Update() {
  std::vector<std::string> lines;
  if (long rc = mEventLines.ReadNew(&lines)) return rc;
  if (mEventLines.Restarted()) mEvents.clear();
  const size_t before = mEvents.size();
  for (const std::string& line : lines) {
    SignalEvent event;
    if (SignalEvent::Parse(line, &event)) mEvents.push_back(event);
  }
  mNewEvents = mEvents.size() - before;

  lines.clear();
  if (long rc = mLevelLines.ReadNew(&lines)) return rc;
  if (mLevelLines.Restarted()) mPictures.clear(), mSounds.clear();
  for (const std::string& line : lines) {
    PictureLevels picture;
    SoundLevels sound;
    switch (SlotLevels::Parse(line, &mRateNumerator, &mRateDenominator, &mChannels, &picture, &sound)) {
      case SlotLevels::LineKind::kPicture: mPictures.push_back(picture); break;
      case SlotLevels::LineKind::kSound: mSounds.push_back(std::move(sound)); break;
      default: break;
    }
  }
  return 0;
}

std::vector<SignalEvent> TakeSignal::EventsBySlot() const {
  std::vector<SignalEvent> sorted = mEvents;
  std::stable_sort(sorted.begin(), sorted.end(), [](const SignalEvent& a, const SignalEvent& b) {
    return std::make_tuple(a.slot, static_cast<int>(a.kind), a.channel) <
           std::make_tuple(b.slot, static_cast<int>(b.kind), b.channel);
  });
  return sorted;
}

}  // namespace KTN
