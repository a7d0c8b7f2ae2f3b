// Intrusive, atomic reference count for objects shared between the device and host threads.
#pragma once

#include <stdint.h>

#include <atomic>

namespace KTN {
namespace Core {

class Refcounted {
 public:
  // The creator holds the first reference.
  Refcounted() = default;

  Refcounted(const Refcounted&) = delete;
  Refcounted& operator=(const Refcounted&) = delete;

  // Both return the count after the change and are safe from any thread at once.
  virtual int Retain();
  // Deletes the object when the count reaches 0 (the caller must not touch it after
  // that); a count below 0 is reported and destroys nothing.
  virtual int Release();

 protected:
  // Objects are destroyed only through Release.
  virtual ~Refcounted() = default;

  // Changed only atomically.
  std::atomic<int32_t> mCount{1};
};

}  // namespace Core
}  // namespace KTN
