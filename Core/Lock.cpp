// Scoped lock guard.
#include "Core/Lock.h"

#include "Util/Log.h"

namespace KTN {
namespace Core {

Lock::Lock(Lockable* target, long* result) : mTarget(target), mResult(result) {
  *mResult = mTarget->Lock();
  if (*mResult) {
    KTN_LOG("Lock returned %ld", *mResult);
    return;
  }
  mEngaged = true;
}

Lock::Lock(Lockable* target) : mTarget(target), mResult(nullptr) {
  long rc = mTarget->Lock();
  if (rc) {
    KTN_LOG("Lock returned %ld", rc);
    return;
  }
  mEngaged = true;
}

Lock::~Lock() {
  if (!mTarget || !mEngaged) return;
  long rc = mTarget->Unlock();
  if (!rc) return;
  KTN_LOG("Unlock returned %ld", rc);
  if (mResult && *mResult == 0) *mResult = rc;
}

}  // namespace Core
}  // namespace KTN
