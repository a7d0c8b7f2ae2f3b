// Scoped unlock guard, the mirror image of Lock.
#include "Core/Unlock.h"

#include "Util/Log.h"

namespace KTN {
namespace Core {

Unlock::Unlock(Lockable* target, long* result) : mTarget(target), mResult(result) {
  *mResult = mTarget->Unlock();
  if (*mResult) {
    KTN_LOG("Unlock returned %ld", *mResult);
    return;
  }
  mEngaged = true;
}

Unlock::Unlock(Lockable* target) : mTarget(target), mResult(nullptr) {
  long rc = mTarget->Unlock();
  if (rc) {
    KTN_LOG("Unlock returned %ld", rc);
    return;
  }
  mEngaged = true;
}

Unlock::~Unlock() {
  if (!mTarget || !mEngaged) return;
  long rc = mTarget->Lock();
  if (!rc) return;
  KTN_LOG("Lock returned %ld", rc);
  if (mResult && *mResult == 0) *mResult = rc;
}

}  // namespace Core
}  // namespace KTN
