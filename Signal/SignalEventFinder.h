// Finds the events of a take's signal in its slots' readings: black, frozen pictures, silence, clipping, empty slots.
#pragma once

#include <stdint.h>

#include <vector>

#include "Signal/PictureMeter.h"
#include "Signal/SignalEvent.h"
#include "Signal/SoundMeter.h"

namespace KTN {

// Turns the readings of a take's pictures and sound, slot by slot, into its events. An event
// is given out once, whole, when the run it describes has ended (the next slot is not like
// it, or the take ends):
//   black     2 or more pictures in a row at least 98% black (FFmpeg blackdetect's default)
//   freeze    10 or more slots showing one picture: each after the first differs from the
//             one before by at most -60 dB of full scale (freezedetect's default noise);
//             black pictures count as black only, never as a freeze
//   silence   a channel whose peak stays below -60 dBFS for at least one second
//   clipping  a channel with 3 or more consecutive samples at full scale, over the slots in a row where it does
//   dropped   slots without a picture
// A slot without a picture ends the picture runs around it. Timecode breaks are found where
// the timecode is read (the plug-in), not here. Used by one thread at a time.
class SignalEventFinder {
 public:
  // Slots last slotDuration / timescale seconds; the sound has channels channels.
  SignalEventFinder(int64_t slotDuration, int64_t timescale, int channels);

  // The picture of reading.levels.slot (later than the last one given). Slots skipped since
  // the last picture had none.
  void Picture(const PictureReading& reading);
  // One slot's sound, in order.
  void Sound(const SoundReading& reading);
  // The take ends with slots frame slots (the pictures'; -1 when unknown): slots after the
  // last picture had none, and every run still open ends.
  void Finish(int64_t slots);

  // The events found since the last call, and forgotten here.
  std::vector<SignalEvent> Take();

 private:
  struct Run {
    int64_t first = -1;  // its first slot, or -1 when none is open
    int64_t last = -1;   // its last slot
  };
  // Ends run as an event of kind (and channel) when it lasted at least least slots.
  void End(Run& run, SignalEvent::Kind kind, int64_t least, int channel = 0);
  void Dropped(int64_t first, int64_t end);

  int64_t mSilenceSlots;  // the slots of one second, rounded up
  int64_t mLastPicture = -1;
  Run mBlack;
  Run mFreeze;
  std::vector<Run> mSilence;
  std::vector<Run> mClipping;
  std::vector<SignalEvent> mFound;
};

}  // namespace KTN
