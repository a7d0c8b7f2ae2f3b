// A plain, non-recursive mutex with status results instead of exceptions.
#pragma once

#include <pthread.h>

namespace KTN {
namespace Core {

// Must be initialised with Init before use; the destructor undoes only what Init achieved.
// The owner must not lock it twice. Lock and Unlock are called on any thread.
class Lockable {
 public:
  Lockable() = default;
  ~Lockable();

  Lockable(const Lockable&) = delete;
  Lockable& operator=(const Lockable&) = delete;

  // Each returns 0 or the pthread error, with one failure line.
  long Init();
  long Lock();
  long Unlock();

  // True once Init has succeeded.
  bool IsInitialised() const { return mInitialised; }

 protected:
  // The mutex itself; Event waits on it with its condition variable.
  pthread_mutex_t mMutex;
  bool mInitialised = false;
};

}  // namespace Core
}  // namespace KTN
