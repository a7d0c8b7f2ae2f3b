// Serialises the use of one fixed segment name among the processes of a machine.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

namespace KTN {
namespace Core {

// The segment names are one per machine, so two host processes recording at once (of one
// user or of two) must not create, fill, hand over and remove "the" video segment at the
// same time. A SegmentLock is held by one process at a time from the segment's creation
// until its removal: the holder binds a socket to a name of the machine's abstract socket
// namespace made from the segment's name. The name is the lock: the kernel lets one socket
// have it, frees it when that socket is closed or its process dies (killed outright too),
// and leaves no file anywhere. The holder listens on it, so that a process waiting for the
// name can ask the kernel who holds it (the listener's process and user).
//
// Any process of any user can take the name, and keep it: fixed names can always be held
// by someone else, so callers wait for them without losing their own promises. A wait
// longer than kSayHolderAfter says once, in one line, who holds the name.
//
// Used by one thread at a time; every operation returns 0 or an errno value with one
// failure line.
class SegmentLock {
 public:
  // A wait for the name longer than this is told in one line naming the holder.
  static constexpr std::chrono::seconds kSayHolderAfter{2};

  // For the segment named key (as given to SharedMemory).
  explicit SegmentLock(const char* key);
  // Releases the lock if held.
  ~SegmentLock();

  SegmentLock(const SegmentLock&) = delete;
  SegmentLock& operator=(const SegmentLock&) = delete;

  // Takes the lock, waiting for another process's hold until deadline at the latest:
  // 0, 11 (EAGAIN) when it is still held elsewhere then, or the failure. Attempts that
  // fail less than kSayHolderAfter apart are one wait, which may span many calls; once it
  // has lasted longer than kSayHolderAfter, one line says who holds the name (once a wait).
  long Acquire(std::chrono::steady_clock::time_point deadline);
  void Release();
  bool Held() const { return mHeld; }

  // Who holds the name now, in the user's words ("process 1234 (kestrin-capture) of user
  // ana"); empty when nobody holds it or the holder does not answer (a socket bound to the
  // name without listening, which none of ours is).
  std::string Holder() const;

  // The user owning the segment named key (which may be another user's and closed to this
  // one): 0, or the errno of looking, with no line.
  static long Owner(const char* key, uid_t& owner);

 private:
  // One attempt to bind the name: 0 (held here), 98 (EADDRINUSE, no line) when another
  // socket has it, or the failure.
  long TryBind();
  // Counts a failed attempt at now into the current wait, and says who holds the name once
  // the wait has lasted longer than kSayHolderAfter.
  void NoteWait(std::chrono::steady_clock::time_point now);

  std::string mKey;   // the segment's name, for the lines
  std::string mName;  // the abstract socket name, without its leading NUL
  int mFd = -1;       // the socket while held; an unbound one between attempts of a wait
  bool mHeld = false;
  std::chrono::steady_clock::time_point mWaitingSince;  // the current wait's first failed attempt
  std::chrono::steady_clock::time_point mLastFailed;    // its latest failed attempt
  bool mHolderSaid = false;                             // the current wait has named the holder
};

}  // namespace Core
}  // namespace KTN
