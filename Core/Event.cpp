// One-shot event over a mutex and a condition variable.
#include "Core/Event.h"

#include <errno.h>

#include "Core/Lock.h"
#include "Util/Log.h"
#include "Util/Timing.h"

namespace KTN {
namespace Core {

Event::~Event() {
  if (!mCondInitialised) return;
  if (long rc = pthread_cond_destroy(&mCondition)) KTN_LOG("pthread_cond_destroy returned %ld", rc);
}

long Event::Init() {
  if (long rc = Lockable::Init()) {
    KTN_LOG("Lockable::Init returned %ld", rc);
    return rc;
  }
  long rc = pthread_cond_init(&mCondition, nullptr);
  if (rc) {
    KTN_LOG("pthread_cond_init returned %ld", rc);
    return rc;
  }
  mCondInitialised = true;
  return 0;
}

long Event::Wait() {
  long result = 0;
  Core::Lock lock(this, &result);
  if (result) {
    KTN_LOG("Lock returned %ld", result);
    return result;
  }
  if (mSignalled) return 0;
  if (long rc = pthread_cond_wait(&mCondition, &mMutex)) {
    KTN_LOG("pthread_cond_wait returned %ld", rc);
    return rc;
  }
  return 0;
}

long Event::TimedWait(long micros, bool& timedOut) {
  timedOut = false;
  timespec deadline;
  if (long rc = Util::Timing::TimespecForMicrosIntoFuture(micros, &deadline)) {
    KTN_LOG("TimespecForMicrosIntoFuture returned %ld", rc);
    return rc;
  }
  long result = 0;
  Core::Lock lock(this, &result);
  if (result) {
    KTN_LOG("Lock returned %ld", result);
    return result;
  }
  if (mSignalled) return 0;
  long rc = pthread_cond_timedwait(&mCondition, &mMutex, &deadline);
  if (rc == ETIMEDOUT) {
    timedOut = true;
    return 0;
  }
  if (rc) KTN_LOG("pthread_cond_timedwait returned %ld", rc);
  return rc;
}

long Event::Raise(bool* wasSignalled, int (*wake)(pthread_cond_t*), const char* caller,
                  const char* wakeName) {
  long result = 0;
  Core::Lock lock(this, &result);
  if (result) {
    Util::LogFailure(caller, __LINE__, "Lock returned %ld\n", result);
    return result;
  }
  if (wasSignalled) *wasSignalled = mSignalled;
  if (mSignalled) return 0;
  mSignalled = true;
  if (long rc = wake(&mCondition)) {
    Util::LogFailure(caller, __LINE__, "%s returned %ld\n", wakeName, rc);
    return rc;
  }
  return 0;
}

long Event::Signal(bool* wasSignalled) {
  return Raise(wasSignalled, pthread_cond_signal, __func__, "pthread_cond_signal");
}

long Event::Broadcast(bool* wasSignalled) {
  return Raise(wasSignalled, pthread_cond_broadcast, __func__, "pthread_cond_broadcast");
}

}  // namespace Core
}  // namespace KTN
