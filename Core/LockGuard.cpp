// The shared body of the Lock and Unlock guards.
#include "Core/LockGuard.h"

#include "Util/Log.h"

namespace KTN {
namespace Core {

LockGuard::LockGuard(Lockable* target, long* result, Operation enter, const char* enterName, const char* caller)
    : mTarget(target), mResult(result) {
  long rc = (mTarget->*enter)();
  if (mResult) *mResult = rc;
  if (rc) {
    Util::LogFailure(caller, __LINE__, "%s returned %ld\n", enterName, rc);
    return;
  }
  mEngaged = true;
}

void LockGuard::Leave(Operation leave, const char* leaveName, const char* caller) {
  if (!mTarget || !mEngaged) return;
  long rc = (mTarget->*leave)();
  if (!rc) return;
  Util::LogFailure(caller, __LINE__, "%s returned %ld\n", leaveName, rc);
  if (mResult && *mResult == 0) *mResult = rc;
}

}  // namespace Core
}  // namespace KTN
