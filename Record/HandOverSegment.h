// One hand-over's shared-memory segment, owned from its creation until the server has answered.
#pragma once

#include <sys/uio.h>

#include <chrono>
#include <memory>

#include "Core/SegmentLock.h"
#include "Core/SharedMemory.h"

namespace KTN {

// A segment is made fresh for each picture and each packet, under its name's lock, which
// keeps the other host processes of the machine from making the same name meanwhile (the
// names are one per machine). When it goes (or on Reset) the segment's name is removed, and
// only then its lock let go: another process may make the name again from there. Move-only;
// it holds nothing until TakeName has succeeded. Host thread only.
class HandOverSegment {
 public:
  HandOverSegment() = default;
  ~HandOverSegment() { Reset(); }
  HandOverSegment(HandOverSegment&& other) noexcept;
  HandOverSegment& operator=(HandOverSegment&& other) noexcept;
  HandOverSegment(const HandOverSegment&) = delete;
  HandOverSegment& operator=(const HandOverSegment&) = delete;

  // Takes the name's lock (borrowed: it outlives this segment), waiting for another
  // process's hold until nameBy at most: 0, 11 (EAGAIN) when it is still held elsewhere then
  // (nothing is held), or the failure.
  long TakeName(Core::SegmentLock& lock, std::chrono::steady_clock::time_point nameBy);
  // Creates the segment named key with size bytes, once the name is held; a segment of the
  // name that an earlier run of this user left behind is removed once first. 0 or the
  // failure, reported (a leftover of another user's is not ours to remove: 13, EACCES).
  long Create(const char* key, unsigned long size);
  // Writes parts into the segment through its descriptor, not through a new mapping, whose
  // pages would each fault on the first write: 0 or the failure, reported.
  long Fill(const struct iovec* parts, int count);
  // Removes the segment (if made), then lets go of its name's lock (if held). Inline: a
  // capture instance holds one, and code that only makes instances need not link the
  // record module.
  void Reset() {
    mSegment.reset();             // unmaps nothing (it was never mapped) and removes the name
    if (mLock) mLock->Release();  // then another process may make the name again
    mLock = nullptr;
  }

 private:
  std::unique_ptr<Core::SharedMemory> mSegment;
  Core::SegmentLock* mLock = nullptr;  // borrowed; held while set
};

}  // namespace KTN
