// Test support: a take built box by box as the recording server lays it out, grown on disk fragment by fragment.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace KTN {

// [ftyp][moov: a picture track (ID 1, 30000 a second) and a sound track (ID 2, 48000 a
// second, 4 bytes a frame), no sample, mvex]([moof][mdat])... Each fragment holds one
// sample, its duration, size and flags in its tfhd, a 64-bit decode time and a data offset
// (and for a picture its flags as a key frame), as the server writes them. Used by one thread.
class FakeTake {
 public:
  static constexpr uint32_t kPictureTrack = 1;
  static constexpr uint32_t kSoundTrack = 2;
  static constexpr uint32_t kPictureScale = 30000;
  static constexpr uint32_t kFrame = 1001;  // one slot at 29.97
  static constexpr uint32_t kSoundRate = 48000;
  static constexpr uint32_t kPictureBytes = 64;

  // Writes the header at path (replacing what was there); wideHeaders: version 1 movie,
  // track and media headers (64-bit dates and durations).
  explicit FakeTake(const std::string& path, bool wideHeaders = false);

  // Appends the picture of slot `slot`, one slot long (it may be lengthened later).
  void Picture(uint64_t slot);
  // Appends sound of `frames` sample frames from sample frame `first`.
  void Sound(uint64_t first, uint32_t frames);
  // Rewrites the last picture's duration in place, as the server does for the slots after it.
  void LastPictureLasts(uint32_t duration);
  // Appends bytes as they are.
  void Append(const std::vector<uint8_t>& bytes);
  uint64_t Size() const { return mSize; }

  // The header's bytes.
  static std::vector<uint8_t> Header(bool wideHeaders);
  // One fragment of one sample of `size` bytes (0x5A each); *durationAt, when given,
  // receives where the duration field lies in it.
  static std::vector<uint8_t> Fragment(uint32_t track, uint64_t time, uint32_t duration, uint32_t size,
                                       size_t* durationAt = nullptr);

 private:
  std::string mPath;
  uint64_t mSize = 0;
  uint64_t mLastDuration = 0;  // where the last picture's duration field lies
};

}  // namespace KTN
