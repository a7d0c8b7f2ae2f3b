// Test double: a Lockable whose mutex reports misuse, so that lock and unlock can be made to fail.
#pragma once

#include "Core/Lockable.h"

namespace KTN {
namespace Core {

// After Init, the mutex is an error-checking one: unlocking a mutex this thread does not
// hold fails with EPERM (1), locking it twice fails with EDEADLK (35).
class FakeErrorCheckingLockable : public Lockable {
 public:
  long Init();
};

}  // namespace Core
}  // namespace KTN
