// A take's sound measured slot by slot.
#include "Signal/SoundMeter.h"

#include <math.h>

#include <algorithm>

namespace KTN {

SoundMeter::SoundMeter(int channels, int bitsPerSample, int sampleRate, int64_t slotDuration, int64_t timescale)
    : mChannels(channels > 0 ? channels : 0),
      mBytes(bitsPerSample / 8),
      mFrameBytes(mChannels * mBytes),
      mFullScale(int64_t{1} << (bitsPerSample > 8 ? bitsPerSample - 1 : 15)),
      mRate(sampleRate > 0 ? sampleRate : 48000),
      mSlotDuration(slotDuration > 0 && timescale > 0 ? slotDuration : 1),
      mTimescale(slotDuration > 0 && timescale > 0 ? timescale : 25) {
  if (mBytes != 2 && mBytes != 3 && mBytes != 4) mChannels = 0, mFrameBytes = 0;
  mState.peak.assign(static_cast<size_t>(mChannels), 0);
  mState.squares.assign(static_cast<size_t>(mChannels), 0);
  mState.clipRun.assign(static_cast<size_t>(mChannels), 0);
  mState.clipped.assign(static_cast<size_t>(mChannels), false);
  mState.slotEnd = SlotStart(1);
}

int64_t SoundMeter::SlotStart(int64_t slot) const {
  // slot * duration seconds in samples, rounded to the nearest.
  const __int128 units = static_cast<__int128>(slot) * mSlotDuration * mRate;
  return static_cast<int64_t>((2 * units + mTimescale) / (2 * mTimescale));
}

int64_t SoundMeter::SlotOf(int64_t s) const {
  int64_t slot = static_cast<int64_t>(static_cast<__int128>(s) * mTimescale / (static_cast<__int128>(mSlotDuration) * mRate));
  while (slot > 0 && SlotStart(slot) > s) --slot;
  while (SlotStart(slot + 1) <= s) ++slot;
  return slot;
}

void SoundMeter::Begin(int64_t firstSample) {
  mSaved = mState;
  mDone.clear();
  mCarry.clear();
  if (firstSample != mState.next) MoveTo(firstSample);
}

void SoundMeter::MoveTo(int64_t sample) {
  const int64_t slot = SlotOf(sample);
  if (slot != mState.slot) {
    if (mState.frames) CompleteSlot();
    mState.slot = slot;
    mState.slotEnd = SlotStart(slot + 1);
    std::fill(mState.clipRun.begin(), mState.clipRun.end(), 0);
  }
  mState.next = sample;
}

void SoundMeter::CompleteSlot() {
  SoundReading reading;
  reading.levels.slot = mState.slot;
  for (int c = 0; c < mChannels; ++c) {
    const double peak = static_cast<double>(mState.peak[c]) / static_cast<double>(mFullScale);
    const double rms = mState.frames ? sqrt(mState.squares[c] / static_cast<double>(mState.frames)) : 0;
    reading.levels.peakDb.push_back(peak > 0 ? static_cast<float>(20 * log10(peak)) : -INFINITY);
    reading.levels.rmsDb.push_back(rms > 0 ? static_cast<float>(20 * log10(rms)) : -INFINITY);
  }
  reading.clipped = mState.clipped;
  mDone.push_back(std::move(reading));
  std::fill(mState.peak.begin(), mState.peak.end(), 0);
  std::fill(mState.squares.begin(), mState.squares.end(), 0.0);
  std::fill(mState.clipped.begin(), mState.clipped.end(), false);
  mState.frames = 0;
}

void SoundMeter::Measure(const uint8_t* frame) {
  if (mState.next >= mState.slotEnd) {
    CompleteSlot();
    ++mState.slot;
    mState.slotEnd = SlotStart(mState.slot + 1);
  }
  const double scale = 1.0 / static_cast<double>(mFullScale);
  for (int c = 0; c < mChannels; ++c) {
    const uint8_t* p = frame + c * mBytes;
    int64_t value;
    if (mBytes == 2) {
      value = static_cast<int16_t>(p[0] | p[1] << 8);
    } else if (mBytes == 3) {
      value = static_cast<int32_t>(static_cast<uint32_t>(p[0]) << 8 | static_cast<uint32_t>(p[1]) << 16 |
                                   static_cast<uint32_t>(p[2]) << 24) >> 8;
    } else {
      value = static_cast<int32_t>(p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24);
    }
    const int64_t magnitude = value < 0 ? -value : value;
    if (magnitude > mState.peak[c]) mState.peak[c] = magnitude;
    const double x = static_cast<double>(value) * scale;
    mState.squares[c] += x * x;
    // Full scale: the format's largest or smallest value.
    if (value == mFullScale - 1 || value == -mFullScale) {
      if (++mState.clipRun[c] >= 3) mState.clipped[c] = true;
    } else {
      mState.clipRun[c] = 0;
    }
  }
  ++mState.frames;
  ++mState.next;
}

void SoundMeter::Update(const uint8_t* data, size_t size) {
  if (!mFrameBytes) return;
  const size_t frameBytes = static_cast<size_t>(mFrameBytes);
  if (!mCarry.empty()) {
    const size_t want = std::min(frameBytes - mCarry.size(), size);
    mCarry.insert(mCarry.end(), data, data + want);
    data += want, size -= want;
    if (mCarry.size() < frameBytes) return;
    Measure(mCarry.data());
    mCarry.clear();
  }
  for (; size >= frameBytes; data += frameBytes, size -= frameBytes) Measure(data);
  if (size) mCarry.assign(data, data + size);
}

std::vector<SoundReading> SoundMeter::End() {
  mCarry.clear();
  // A slot the chunk filled exactly is complete now, not when the next chunk comes.
  if (mState.frames && mState.next >= mState.slotEnd) {
    CompleteSlot();
    ++mState.slot;
    mState.slotEnd = SlotStart(mState.slot + 1);
  }
  std::vector<SoundReading> done;
  done.swap(mDone);
  return done;
}

void SoundMeter::Abort() {
  mState = mSaved;
  mDone.clear();
  mCarry.clear();
}

std::vector<SoundReading> SoundMeter::Flush() {
  mDone.clear();
  if (mState.frames) CompleteSlot();
  std::vector<SoundReading> done;
  done.swap(mDone);
  return done;
}

}  // namespace KTN
