// Test double: an error-checking mutex behind the Lockable interface.
#include "Core/FakeErrorCheckingLockable.h"

namespace KTN {
namespace Core {

long FakeErrorCheckingLockable::Init() {
  if (long rc = Lockable::Init()) return rc;
  pthread_mutex_destroy(&mMutex);
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
  long rc = pthread_mutex_init(&mMutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
  return rc;
}

}  // namespace Core
}  // namespace KTN
