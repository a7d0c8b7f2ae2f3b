// Scoped guard that holds a Lockable for one block and reports unlock failures to its owner.
#pragma once

#include "Core/Lockable.h"

namespace KTN {
namespace Core {

class Lock {
 public:
  // Locks target; *result (which must not be null) receives the lock's status. If the
  // unlock at the end of the block fails, its error goes into *result unless an earlier
  // error is already there: the first error wins. target is borrowed.
  Lock(Lockable* target, long* result);
  // The same without a result variable; failures are only logged.
  explicit Lock(Lockable* target);
  // Unlocks only if the constructor's lock succeeded.
  virtual ~Lock();

  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  Lockable* mTarget;
  long* mResult;
  bool mEngaged = false;
};

}  // namespace Core
}  // namespace KTN
