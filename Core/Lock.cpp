// Scoped lock guard.
#include "Core/Lock.h"

namespace KTN {
namespace Core {

Lock::Lock(Lockable* target, long* result) : LockGuard(target, result, &Lockable::Lock, "Lock", __func__) {}

Lock::Lock(Lockable* target) : LockGuard(target, nullptr, &Lockable::Lock, "Lock", __func__) {}

Lock::~Lock() {
  Leave(&Lockable::Unlock, "Unlock", __func__);
}

}  // namespace Core
}  // namespace KTN
