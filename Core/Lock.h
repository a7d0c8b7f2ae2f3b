// Scoped guard that holds a Lockable for one block and reports unlock failures to its owner.
#pragma once

#include "Core/LockGuard.h"

namespace KTN {
namespace Core {

class Lock : private LockGuard {
 public:
  // Locks target; *result (which must not be null) receives the lock's status. If the
  // unlock at the end of the block fails, its error goes into *result unless an earlier
  // error is already there: the first error wins. target is borrowed.
  Lock(Lockable* target, long* result);
  // The same without a result variable; failures are only logged.
  explicit Lock(Lockable* target);
  // Unlocks only if the constructor's lock succeeded.
  virtual ~Lock();
};

}  // namespace Core
}  // namespace KTN
