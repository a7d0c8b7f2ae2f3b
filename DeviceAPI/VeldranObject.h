// Helpers for implementing device API objects: reference counting and swapping held references.
#pragma once

#include <stdint.h>

#include <atomic>
#include <mutex>

#include "DeviceAPI/VeldranAPI.h"

// Implements the three common operations for one interface. Created with one reference;
// the last Release deletes. QueryInterface answers no other interface unless overridden.
template <typename Interface>
class VeldranObject : public Interface {
 public:
  VeldranResult QueryInterface(VeldranIID, void** out) override {
    if (out) *out = nullptr;
    return kVeldranNoInterface;
  }
  int32_t AddRef() override { return mCount.fetch_add(1) + 1; }
  int32_t Release() override {
    int32_t count = mCount.fetch_sub(1) - 1;
    if (count == 0) delete this;
    return count;
  }

 protected:
  VeldranObject() = default;
  virtual ~VeldranObject() = default;

 private:
  std::atomic<int32_t> mCount{1};
};

// Makes slot (guarded by lock) hold a reference to value (which may be null) and lets go of
// the one it held. The old object is released outside the lock, since its last Release may
// run code of its own.
template <typename T>
void ExchangeReference(std::mutex& lock, T*& slot, T* value) {
  if (value) value->AddRef();
  T* old;
  {
    std::lock_guard<std::mutex> guard(lock);
    old = slot;
    slot = value;
  }
  if (old) old->Release();
}

// Releases the device API object it holds (if any) at the end of a scope.
template <typename T>
struct VeldranReleaser {
  T* object = nullptr;
  ~VeldranReleaser() {
    if (object) object->Release();
  }
};

// Holds one reference to a device API object and releases it when it goes, or when it is
// given another. Move-only; empty when it holds nothing. One owner at a time: it takes no
// lock of its own.
template <typename T>
class VeldranRef {
 public:
  VeldranRef() = default;
  // Takes over a reference the caller holds: nothing is added, and one Release follows.
  explicit VeldranRef(T* object) : mObject(object) {}
  VeldranRef(VeldranRef&& other) noexcept : mObject(other.Leave()) {}
  // From a holder of a derived interface (a frame held as the object it is).
  template <typename U>
  VeldranRef(VeldranRef<U>&& other) noexcept : mObject(other.Leave()) {}
  VeldranRef& operator=(VeldranRef&& other) noexcept {
    Reset(other.Leave());
    return *this;
  }
  VeldranRef(const VeldranRef&) = delete;
  VeldranRef& operator=(const VeldranRef&) = delete;
  ~VeldranRef() { Reset(); }

  T* Get() const { return mObject; }
  T* operator->() const { return mObject; }
  explicit operator bool() const { return mObject != nullptr; }

  // Hands the reference to the caller (a queue entry, say), which releases it in turn; the
  // holder is empty afterwards.
  T* Leave() {
    T* object = mObject;
    mObject = nullptr;
    return object;
  }
  // Releases the reference held (if any) and takes over object's.
  void Reset(T* object = nullptr) {
    T* old = mObject;
    mObject = object;
    if (old) old->Release();
  }

 private:
  T* mObject = nullptr;
};
