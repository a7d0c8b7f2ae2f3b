// Each sound channel's peak, RMS and clipping measured frame slot by frame slot as the samples pass.
#pragma once

#include <stdint.h>

#include <vector>

#include "Signal/SlotLevels.h"

namespace KTN {

// What one slot's sound measured: its levels line, and the channels that clipped in it.
struct SoundReading {
  SoundLevels levels;
  std::vector<bool> clipped;  // per channel: 3 or more consecutive samples at full scale reached here
};

// Measures interleaved signed little-endian samples of 16, 24 or 32 bits. The take's sound
// is cut into the picture's frame slots: slot k holds the sample frames from k slot
// durations on, rounded to the nearest sample, as the card hands each frame its sound. The
// samples come in pieces of any size, in order, a chunk of the take's sound at a time; a
// chunk left out (its bytes never all came) is forgotten with Abort. Used by one thread at a
// time.
class SoundMeter {
 public:
  // Slots last slotDuration / timescale seconds.
  SoundMeter(int channels, int bitsPerSample, int sampleRate, int64_t slotDuration, int64_t timescale);

  // Starts a chunk of the take's sound whose first sample frame is firstSample (counted
  // from the take's start). A chunk after a gap ends the slot being measured when the gap
  // passes its end.
  void Begin(int64_t firstSample);
  // The chunk's next bytes.
  void Update(const uint8_t* data, size_t size);
  // Ends the chunk: the slots it completed, in order.
  std::vector<SoundReading> End();
  // Forgets the chunk begun, as if it had not come.
  void Abort();
  // The last slot, complete or not (none when it holds no sample): at the take's end.
  std::vector<SoundReading> Flush();

 private:
  struct State {
    int64_t next = 0;      // the next sample frame expected
    int64_t slot = 0;      // the slot being measured
    int64_t slotEnd = 0;   // its first sample frame after it
    int64_t frames = 0;    // sample frames of it measured
    std::vector<int64_t> peak;     // largest magnitude, per channel
    std::vector<double> squares;   // sum of squares (of samples as fractions of full scale)
    std::vector<int> clipRun;      // consecutive full-scale samples so far, per channel
    std::vector<bool> clipped;
  };
  int64_t SlotStart(int64_t slot) const;
  // The slot sample frame s falls in.
  int64_t SlotOf(int64_t s) const;
  void MoveTo(int64_t sample);
  void CompleteSlot();
  void Measure(const uint8_t* frame);

  int mChannels;
  int mBytes;               // per sample
  int mFrameBytes;          // per sample frame
  int64_t mFullScale;       // 2^(bits - 1)
  int64_t mRate;            // sample frames a second
  int64_t mSlotDuration;
  int64_t mTimescale;
  State mState;
  State mSaved;             // as the chunk found it, for Abort
  std::vector<SoundReading> mDone;   // slots the chunk completed
  std::vector<uint8_t> mCarry;       // a sample frame cut between two pieces
};

}  // namespace KTN
