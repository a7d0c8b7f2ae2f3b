// A plain mutex with status results.
#include "Core/Lockable.h"

#include "Util/Log.h"

namespace KTN {
namespace Core {

Lockable::~Lockable() {
  if (!mInitialised) return;
  if (long rc = pthread_mutex_destroy(&mMutex)) KTN_LOG("pthread_mutex_destroy returned %ld", rc);
}

long Lockable::Init() {
  // Default attributes: an ordinary mutex, deliberately not recursive.
  long rc = pthread_mutex_init(&mMutex, nullptr);
  if (rc) {
    KTN_LOG("pthread_mutex_init returned %ld", rc);
    return rc;
  }
  mInitialised = true;
  return 0;
}

long Lockable::Lock() {
  long rc = pthread_mutex_lock(&mMutex);
  if (rc) KTN_LOG("pthread_mutex_lock returned %ld", rc);
  return rc;
}

long Lockable::Unlock() {
  long rc = pthread_mutex_unlock(&mMutex);
  if (rc) KTN_LOG("pthread_mutex_unlock returned %ld", rc);
  return rc;
}

}  // namespace Core
}  // namespace KTN
