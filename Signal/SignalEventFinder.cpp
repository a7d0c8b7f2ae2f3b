// A take's signal events from its slots' readings.
#include "Signal/SignalEventFinder.h"


namespace KTN {
namespace {

constexpr double kBlackShare = 0.98;        // blackdetect's picture threshold
constexpr double kFreezeNoise = 0.001;      // freezedetect's -60 dB
constexpr float kSilenceDb = -60.0f;
constexpr int64_t kBlackSlots = 2;
constexpr int64_t kFreezeSlots = 10;

}  // namespace

SignalEventFinder::SignalEventFinder(int64_t slotDuration, int64_t timescale, int channels)
    : mSilenceSlots(slotDuration > 0 && timescale > 0 ? (timescale + slotDuration - 1) / slotDuration : 25),
      mSilence(static_cast<size_t>(channels > 0 ? channels : 0)),
      mClipping(static_cast<size_t>(channels > 0 ? channels : 0)) {}

void SignalEventFinder::End(Run& run, SignalEvent::Kind kind, int64_t least, int channel) {
  if (run.first >= 0 && run.last - run.first + 1 >= least) {
    SignalEvent event;
    event.kind = kind;
    event.slot = run.first;
    event.frames = run.last - run.first + 1;
    event.channel = channel;
    mFound.push_back(event);
  }
  run = Run();
}

void SignalEventFinder::Dropped(int64_t first, int64_t end) {
  if (end <= first) return;
  SignalEvent event;
  event.kind = SignalEvent::Kind::kDropped;
  event.slot = first;
  event.frames = end - first;
  mFound.push_back(event);
}

void SignalEventFinder::Picture(const PictureReading& reading) {
  const int64_t slot = reading.levels.slot;
  if (slot <= mLastPicture) return;
  const bool gap = mLastPicture >= 0 && slot > mLastPicture + 1;
  if (gap) {
    End(mBlack, SignalEvent::Kind::kBlack, kBlackSlots);
    End(mFreeze, SignalEvent::Kind::kFreeze, kFreezeSlots);
    Dropped(mLastPicture + 1, slot);
  } else if (mLastPicture < 0 && slot > 0) {
    Dropped(0, slot);
  }
  const bool black = reading.blackShare >= kBlackShare;
  const bool same = !gap && reading.levels.hasChange && reading.change <= kFreezeNoise;
  if (black) {
    End(mFreeze, SignalEvent::Kind::kFreeze, kFreezeSlots);
    if (mBlack.first < 0) mBlack.first = slot;
    mBlack.last = slot;
  } else {
    End(mBlack, SignalEvent::Kind::kBlack, kBlackSlots);
    if (same) {
      // The run starts with the picture that is held: the one before this.
      if (mFreeze.first < 0) mFreeze.first = mLastPicture;
      mFreeze.last = slot;
    } else {
      End(mFreeze, SignalEvent::Kind::kFreeze, kFreezeSlots);
    }
  }
  mLastPicture = slot;
}

void SignalEventFinder::Sound(const SoundReading& reading) {
  const int64_t slot = reading.levels.slot;
  for (size_t c = 0; c < mSilence.size() && c < reading.levels.peakDb.size(); ++c) {
    const int channel = static_cast<int>(c) + 1;
    Run& silence = mSilence[c];
    if (silence.first >= 0 && slot != silence.last + 1) End(silence, SignalEvent::Kind::kSilence, mSilenceSlots, channel);
    if (reading.levels.peakDb[c] < kSilenceDb) {
      if (silence.first < 0) silence.first = slot;
      silence.last = slot;
    } else {
      End(silence, SignalEvent::Kind::kSilence, mSilenceSlots, channel);
    }
    Run& clipping = mClipping[c];
    if (clipping.first >= 0 && slot != clipping.last + 1) End(clipping, SignalEvent::Kind::kClipping, 1, channel);
    if (c < reading.clipped.size() && reading.clipped[c]) {
      if (clipping.first < 0) clipping.first = slot;
      clipping.last = slot;
    } else {
      End(clipping, SignalEvent::Kind::kClipping, 1, channel);
    }
  }
}

void SignalEventFinder::Finish(int64_t slots) {
  End(mBlack, SignalEvent::Kind::kBlack, kBlackSlots);
  End(mFreeze, SignalEvent::Kind::kFreeze, kFreezeSlots);
  if (mLastPicture >= 0 && slots > mLastPicture + 1) Dropped(mLastPicture + 1, slots);
  for (size_t c = 0; c < mSilence.size(); ++c) {
    End(mSilence[c], SignalEvent::Kind::kSilence, mSilenceSlots, static_cast<int>(c) + 1);
    End(mClipping[c], SignalEvent::Kind::kClipping, 1, static_cast<int>(c) + 1);
  }
}

std::vector<SignalEvent> SignalEventFinder::Take() {
  std::vector<SignalEvent> found;
  found.swap(mFound);
  return found;
}

}  // namespace KTN
