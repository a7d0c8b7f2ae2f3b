// Scoped unlock guard, the mirror image of Lock.
#include "Core/Unlock.h"

namespace KTN {
namespace Core {

Unlock::Unlock(Lockable* target, long* result) : LockGuard(target, result, &Lockable::Unlock, "Unlock", __func__) {}

Unlock::Unlock(Lockable* target) : LockGuard(target, nullptr, &Lockable::Unlock, "Unlock", __func__) {}

Unlock::~Unlock() {
  Leave(&Lockable::Lock, "Lock", __func__);
}

}  // namespace Core
}  // namespace KTN
