// Serialises the use of one fixed segment name among the processes of a machine.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

namespace KTN {
namespace Core {

// The segment names are one per machine, so two host processes recording at once (of one
// user or of two) must not create, fill, hand over and remove "the" video segment at the
// same time. A SegmentLock is an advisory lock on a file beside the segment, held by one
// process at a time from the segment's creation until its removal. The file exists while
// locks on it are in use: the last one closed removes it. Used by one thread at a time;
// every operation returns 0 or an errno value with one failure line.
class SegmentLock {
 public:
  // For the segment named key (as given to SharedMemory).
  explicit SegmentLock(const char* key);
  // Releases the lock if held, and closes the lock file; removes it when no other process
  // holds the lock.
  ~SegmentLock();

  SegmentLock(const SegmentLock&) = delete;
  SegmentLock& operator=(const SegmentLock&) = delete;

  // Takes the lock, waiting for another process's hold until deadline at the latest:
  // 0, 11 (EAGAIN, no line) when it is still held elsewhere then, or the failure.
  long Acquire(std::chrono::steady_clock::time_point deadline);
  void Release();
  bool Held() const { return mHeld; }

  // The user owning the segment named key (which may be another user's and closed to this
  // one): 0, or the errno of looking, with no line.
  static long Owner(const char* key, uid_t& owner);

 private:
  long Open();
  // The open lock file is no longer at the path (another holder removed it).
  bool Removed() const;

  std::string mPath;  // the lock file
  int mFd = -1;
  bool mHeld = false;
};

}  // namespace Core
}  // namespace KTN
