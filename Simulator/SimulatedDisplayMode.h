// The simulated card's display modes as device API objects, and their iterator.
#pragma once

#include <stddef.h>

#include "Simulator/SimulatedModes.h"
#include "DeviceAPI/VeldranObject.h"

namespace KTN {
namespace Sim {

class SimulatedDisplayMode : public VeldranObject<IVeldranDisplayMode> {
 public:
  explicit SimulatedDisplayMode(const SimulatedMode& mode) : mMode(mode) {}

  int32_t GetWidth() override { return mMode.width; }
  int32_t GetHeight() override { return mMode.height; }
  uint32_t GetDisplayMode() override { return mMode.code; }
  VeldranResult GetName(char** name) override;
  VeldranResult GetFrameRate(int64_t* frameDuration, int64_t* timeScale) override;
  uint32_t GetFieldDominance() override { return mMode.fieldDominance; }

 private:
  const SimulatedMode& mMode;
};

// Walks the 25 modes in table order.
class SimulatedDisplayModeIterator : public VeldranObject<IVeldranDisplayModeIterator> {
 public:
  VeldranResult Next(IVeldranDisplayMode** mode) override;

 private:
  size_t mNext = 0;
};

}  // namespace Sim
}  // namespace KTN
