// A one-shot event (latch): once signalled it stays signalled, and every wait returns at once.
#pragma once

#include <pthread.h>

#include "Core/Lockable.h"

namespace KTN {
namespace Core {

class Event : public Lockable {
 public:
  Event() = default;
  // Destroys the condition variable if Init created it, then the mutex.
  virtual ~Event();

  // Initialises the mutex, then the condition variable. Returns 0 or the pthread error.
  long Init();

  // Waits once for a signal unless already signalled. There is no loop around the wait:
  // any wake-up, a spurious one included, returns 0; the caller checks its own state.
  long Wait();

  // As Wait, for at most micros microseconds of wall-clock time. A timeout is a success
  // (0) with timedOut set true.
  long TimedWait(long micros, bool& timedOut);

  // Set the latch and wake one waiter (Signal) or all (Broadcast). wasSignalled, when not
  // null, receives the state before the call; an event already signalled is not signalled
  // again. Safe from any thread.
  long Signal(bool* wasSignalled);
  long Broadcast(bool* wasSignalled);

  // Guarded by the event's mutex. There is no reset operation: an owner that reuses the
  // event clears this directly while nobody waits on it.
  bool mSignalled = false;

 private:
  // Shared body of Signal and Broadcast; wake is pthread_cond_signal or _broadcast.
  long Raise(bool* wasSignalled, int (*wake)(pthread_cond_t*), const char* caller,
             const char* wakeName);

  pthread_cond_t mCondition;
  bool mCondInitialised = false;
};

}  // namespace Core
}  // namespace KTN
