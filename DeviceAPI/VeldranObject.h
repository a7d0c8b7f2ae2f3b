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
