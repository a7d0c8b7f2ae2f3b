// What a take's sidecars say of its signal: its events and its levels slot by slot, read whole or followed as they grow.
#pragma once

#include <stdint.h>

#include <string>
#include <utility>
#include <vector>

#include "Signal/GrowingLines.h"
#include "Signal/SignalEvent.h"
#include "Signal/SlotLevels.h"

namespace KTN {

// Reads a take's events (MOVIE.events) and levels (MOVIE.levels). Update reads what the
// files gained since the last call, so the same object serves the capture window and the
// status line while a take records (once a second or so) and the report after it (one
// call). Lines that are not whole (the last one, being written) wait for the next call;
// unreadable lines are passed over. Used by one thread at a time.
class TakeSignal {
 public:
  explicit TakeSignal(const std::string& moviePath);

  // Reads what was added; 0, or errno with one line (a sidecar that is not a regular
  // file). Sidecars that are not there (yet) read as empty.
  long Update();

  // Every event so far, in the order found; NewEvents the ones the last Update added.
  const std::vector<SignalEvent>& Events() const { return mEvents; }
  size_t NewEvents() const { return mNewEvents; }
  // The events sorted by slot (then kind and channel).
  std::vector<SignalEvent> EventsBySlot() const;

  const std::vector<PictureLevels>& Pictures() const { return mPictures; }
  const std::vector<SoundLevels>& Sounds() const { return mSounds; }
  // The slots a second (0/0 when the header is not read yet) and the sound's channels.
  int64_t RateNumerator() const { return mRateNumerator; }
  int64_t RateDenominator() const { return mRateDenominator; }
  int Channels() const { return mChannels; }
  // Whether each sidecar has been found (a take recorded without it has none).
  bool EventsFound() const { return mEventLines.Found(); }
  bool LevelsFound() const { return mLevelLines.Found(); }
  // The levels read so far handed over, leaving none here: for a reader done with the take.
  std::vector<PictureLevels> ReleasePictures() { return std::exchange(mPictures, {}); }
  std::vector<SoundLevels> ReleaseSounds() { return std::exchange(mSounds, {}); }

 private:
  GrowingLines mEventLines;
  GrowingLines mLevelLines;
  std::vector<SignalEvent> mEvents;
  size_t mNewEvents = 0;
  std::vector<PictureLevels> mPictures;
  std::vector<SoundLevels> mSounds;
  int64_t mRateNumerator = 0;
  int64_t mRateDenominator = 0;
  int mChannels = 0;
};

}  // namespace KTN
