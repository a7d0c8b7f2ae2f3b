// The shared body of the Lock and Unlock guards: one Lockable operation now, its inverse at block end.
#pragma once

#include "Core/Lockable.h"

namespace KTN {
namespace Core {

class LockGuard {
 public:
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 protected:
  using Operation = long (Lockable::*)();

  // Runs enter on target (borrowed). With a result variable, *result (which must not be
  // null) receives its status. A failure is reported as "<enterName> returned %ld" in the
  // name of caller and leaves the guard disengaged.
  LockGuard(Lockable* target, long* result, Operation enter, const char* enterName, const char* caller);
  ~LockGuard() = default;

  // Runs leave on the target if the constructor's operation succeeded. A failure is
  // reported in the name of caller and goes into a result variable that still holds 0:
  // the first error wins.
  void Leave(Operation leave, const char* leaveName, const char* caller);

 private:
  Lockable* mTarget;
  long* mResult;  // null when the guard was made without one
  bool mEngaged = false;
};

}  // namespace Core
}  // namespace KTN
