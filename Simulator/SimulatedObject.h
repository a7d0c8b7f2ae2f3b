// Reference counting shared by every object the simulated card hands out.
#pragma once

#include <stdint.h>

#include <atomic>

#include "DeviceAPI/VeldranAPI.h"

namespace KTN {
namespace Sim {

// Implements the three common operations for one interface. Created with one reference;
// the last Release deletes. QueryInterface answers no other interface unless overridden.
template <typename Interface>
class SimulatedObject : public Interface {
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
  SimulatedObject() = default;
  virtual ~SimulatedObject() = default;

 private:
  std::atomic<int32_t> mCount{1};
};

}  // namespace Sim
}  // namespace KTN
