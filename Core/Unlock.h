// Scoped guard that releases a held Lockable for one block and takes it back at the end.
#pragma once

#include "Core/LockGuard.h"

namespace KTN {
namespace Core {

class Unlock : private LockGuard {
 public:
  // Unlocks target, which the caller holds; *result (must not be null) receives the
  // status. A failure to lock again at the end of the block goes into *result unless an
  // earlier error is there. target is borrowed.
  Unlock(Lockable* target, long* result);
  explicit Unlock(Lockable* target);
  // Locks again only if the constructor's unlock succeeded.
  virtual ~Unlock();
};

}  // namespace Core
}  // namespace KTN
