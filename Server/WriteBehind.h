// Keeps a movie being written from filling the page cache: what lies behind the write head goes to the disk early and leaves the cache.
#pragma once

#include <stdint.h>

#include <string>

namespace KTN {

// A take is written once and not read again while it records, yet every byte written would
// stay in the page cache: a long take would evict everything else the machine had cached
// (the editor's media, its renders) and leave gigabytes dirty, whose write-back then stalls
// every process that writes. So the writer hands each complete range over to the disk as
// soon as it is written (write-back started at once, not waited for), and a range lying
// more than a window behind the write head is waited for and dropped from the cache. The
// take then holds at most about windowBytes of the cache, and as much dirty.
//
// Only the order of the data on the disk is given up: nothing is synced here that Stop
// would not sync anyway, and a range is dropped only once it is on the disk. A file in a
// memory-backed folder (tmpfs) keeps its pages: they are its only copy.
//
// Used by the thread that writes the file. The descriptor is borrowed.
class WriteBehind {
 public:
  // The default window: small beside the machine's memory, large beside one frame.
  static constexpr uint64_t kDefaultWindowBytes = 64ull << 20;

  // windowBytes: the most of the file kept in the cache behind the write head (0: the
  // default; at least a few pages).
  explicit WriteBehind(uint64_t windowBytes = 0);

  // Follows descriptor, open for writing on the movie called name (for failure lines),
  // whose first `from` bytes are written already.
  void Start(int descriptor, const std::string& name, uint64_t from);
  // The file holds complete bytes up to end, written in order. 0, or the errno of a write-
  // back that failed (EIO, ENOSPC), with one failure line: the bytes it reports may be
  // lost, and a sync later would no longer say so, so the writer must fail as for a failed
  // write.
  long Written(uint64_t end);
  // Stops following the descriptor (before it is closed).
  void Stop() { mFd = -1; }

  // Whether pages are pushed and dropped at all (a disk, not memory).
  bool Active() const { return mFd >= 0 && mDrops; }

 private:
  long Failed(const char* call, long error);

  uint64_t mWindow;
  uint64_t mChunk;  // the unit pushed and dropped
  int mFd = -1;
  bool mDrops = false;
  std::string mName;
  uint64_t mPushed = 0;   // write-back started for bytes below
  uint64_t mDropped = 0;  // on the disk and out of the cache below
  uint64_t mFirstDrop = 0;  // where the dropped ranges start
};

}  // namespace KTN
