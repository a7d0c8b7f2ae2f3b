// Test fixture: a device API library that exports only the iterator factory (and finds no card).
#include "DeviceAPI/VeldranAPI.h"
#include "DeviceAPI/VeldranObject.h"

namespace {

class EmptyIterator : public VeldranObject<IVeldranIterator> {
 public:
  VeldranResult Next(IVeldran** device) override {
    *device = nullptr;
    return kVeldranFalse;
  }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) IVeldranIterator* CreateVeldranIteratorInstance_0001(void) {
  return new EmptyIterator;
}
