// One simulated card: its input and its device control, and the iterator that finds the cards.
#pragma once

#include "DeviceAPI/VeldranObject.h"
#include "Simulator/SimulatorSettings.h"

namespace KTN {
namespace Sim {

class SimulatedInput;
class SimulatedDeviceControl;

// A card is one piece of hardware: every query of it hands out the same input and device
// control (with a new reference each).
class SimulatedDevice : public VeldranObject<IVeldran> {
 public:
  explicit SimulatedDevice(const SimulatorSettings& settings, int index);

  // IID_IVeldranInput and IID_IVeldranDeviceControl; no output.
  VeldranResult QueryInterface(VeldranIID iid, void** out) override;
  VeldranResult GetModelName(char** name) override;

 protected:
  ~SimulatedDevice() override;

 private:
  int mIndex;
  SimulatedInput* mInput;                  // one reference
  SimulatedDeviceControl* mDeviceControl;  // one reference
};

// Hands out the process's cards (VELDRAN_SIM_DEVICES of them), the same ones to every
// iterator, so that all parts of a host talk to one piece of hardware.
class SimulatedIterator : public VeldranObject<IVeldranIterator> {
 public:
  explicit SimulatedIterator(const SimulatorSettings& settings) : mSettings(settings) {}
  VeldranResult Next(IVeldran** device) override;

  // Drops the process's cards (after the settings change); objects still held live on.
  static void ForgetDevices();

 private:
  const SimulatorSettings mSettings;
  int mNext = 0;
};

}  // namespace Sim
}  // namespace KTN
