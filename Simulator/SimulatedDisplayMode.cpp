// The simulated card's display modes as device API objects.
#include "Simulator/SimulatedDisplayMode.h"

#include <string.h>

namespace KTN {
namespace Sim {

VeldranResult SimulatedDisplayMode::GetName(char** name) {
  if (!name) return kVeldranInvalidArg;
  *name = strdup(mMode.name);
  return *name ? kVeldranOK : kVeldranOutOfMemory;
}

VeldranResult SimulatedDisplayMode::GetFrameRate(int64_t* frameDuration, int64_t* timeScale) {
  if (!frameDuration || !timeScale) return kVeldranInvalidArg;
  *frameDuration = mMode.frameDuration;
  *timeScale = mMode.timeScale;
  return kVeldranOK;
}

VeldranResult SimulatedDisplayModeIterator::Next(IVeldranDisplayMode** mode) {
  if (!mode) return kVeldranInvalidArg;
  if (mNext >= kSimulatedModeCount) {
    *mode = nullptr;
    return kVeldranFalse;
  }
  *mode = new SimulatedDisplayMode(kSimulatedModes[mNext++]);
  return kVeldranOK;
}

}  // namespace Sim
}  // namespace KTN
