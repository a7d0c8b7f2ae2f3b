// The simulated card's device control: capture geometry, a deck (when attached) and its start check.
#pragma once

#include <mutex>

#include "DeviceAPI/VeldranObject.h"
#include "Simulator/SimulatorSettings.h"

namespace KTN {
namespace Sim {

class SimulatedDeviceControl : public VeldranObject<IVeldranDeviceControl> {
 public:
  explicit SimulatedDeviceControl(const SimulatorSettings& settings);

  VeldranResult GetDeckStatus(uint32_t* status) override;
  VeldranResult SetCuePoint(uint32_t timecodeBCD) override;
  VeldranResult GetCuePoint(uint32_t* timecodeBCD) override;
  VeldranResult SetCaptureGeometry(uint32_t width, uint32_t height, uint32_t timeScale, uint32_t frameDuration) override;
  VeldranResult Play() override;
  VeldranResult Stop() override;
  VeldranResult Rewind() override;
  VeldranResult FastForward() override;
  // 0 with a deck attached, kVeldranFalse without.
  VeldranResult GetReadiness() override;
  // 0 when the frame's place on the deck is at or after the cue point (any frame without a
  // cue point); kVeldranFalse before it, or without a deck.
  VeldranResult CheckStart(IVeldranVideoInputFrame* frame) override;
  VeldranResult GetSupportedInputDisplayModes(VeldranDeviceModeRecord* records, uint32_t bufferBytes,
                                              uint32_t* count) override;
  VeldranResult GetHardwareDescription(VeldranHardwareDescription* description) override;

 private:
  VeldranResult DeckCommand(const char* operation);

  const SimulatorSettings mSettings;
  // Protects mCueBCD and the geometry.
  std::mutex mLock;
  uint32_t mCueBCD = 0;
  bool mHasCue = false;
  uint32_t mGeometry[4] = {0, 0, 0, 0};
};

}  // namespace Sim
}  // namespace KTN
