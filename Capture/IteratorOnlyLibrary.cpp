// Test fixture: a device API library that exports only the iterator factory (and finds no card).
#include "DeviceAPI/VeldranAPI.h"

namespace {

class EmptyIterator : public IVeldranIterator {
 public:
  VeldranResult QueryInterface(VeldranIID, void** out) override {
    *out = nullptr;
    return kVeldranNoInterface;
  }
  int32_t AddRef() override { return ++mCount; }
  int32_t Release() override {
    int32_t count = --mCount;
    if (count == 0) delete this;
    return count;
  }
  VeldranResult Next(IVeldran** device) override {
    *device = nullptr;
    return kVeldranFalse;
  }

 private:
  virtual ~EmptyIterator() = default;
  int32_t mCount = 1;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) IVeldranIterator* CreateVeldranIteratorInstance_0001(void) {
  return new EmptyIterator;
}
