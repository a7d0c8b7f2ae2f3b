// Intrusive, atomic reference count.
#include "Core/Refcounted.h"

#include "Util/Log.h"

namespace KTN {
namespace Core {

int Refcounted::Retain() {
  return mCount.fetch_add(1) + 1;
}

int Refcounted::Release() {
  int count = mCount.fetch_sub(1) - 1;
  if (count < 0) {
    KTN_LOG("Negative reference count: %d", count);
  } else if (count == 0) {
    delete this;
  }
  return count;
}

}  // namespace Core
}  // namespace KTN
