// One simulated card and the iterator that finds the cards.
#include "Simulator/SimulatedDevice.h"

#include <stdio.h>
#include <string.h>

#include <mutex>
#include <vector>

#include "Simulator/SimulatedDeviceControl.h"
#include "Simulator/SimulatedInput.h"

namespace KTN {
namespace Sim {

namespace {

// Protects sDevices, the process's cards (one reference each).
std::mutex sDevicesLock;
std::vector<SimulatedDevice*> sDevices;

// The library's own references go when it is unloaded (or the process ends), as a driver
// lets its cards go; a host still holding a card keeps it.
struct DeviceListRelease {
  ~DeviceListRelease() { SimulatedIterator::ForgetDevices(); }
} sDeviceListRelease;

}  // namespace

SimulatedDevice::SimulatedDevice(const SimulatorSettings& settings, int index)
    : mIndex(index), mInput(new SimulatedInput(settings)), mDeviceControl(new SimulatedDeviceControl(settings)) {}

SimulatedDevice::~SimulatedDevice() {
  mInput->Release();
  mDeviceControl->Release();
}

VeldranResult SimulatedDevice::QueryInterface(VeldranIID iid, void** out) {
  if (!out) return kVeldranInvalidArg;
  if (iid == IID_IVeldranInput) {
    mInput->AddRef();
    *out = static_cast<IVeldranInput*>(mInput);
    return kVeldranOK;
  }
  if (iid == IID_IVeldranDeviceControl) {
    mDeviceControl->AddRef();
    *out = static_cast<IVeldranDeviceControl*>(mDeviceControl);
    return kVeldranOK;
  }
  *out = nullptr;
  return kVeldranNoInterface;
}

VeldranResult SimulatedDevice::GetModelName(char** name) {
  if (!name) return kVeldranInvalidArg;
  char text[64];
  snprintf(text, sizeof text, "Kestrin Veldran (simulated) %d", mIndex + 1);
  *name = strdup(text);
  return *name ? kVeldranOK : kVeldranOutOfMemory;
}

VeldranResult SimulatedIterator::Next(IVeldran** device) {
  if (!device) return kVeldranInvalidArg;
  *device = nullptr;
  if (VeldranResult rc = mSettings.Injected("Next")) return rc;
  std::lock_guard<std::mutex> guard(sDevicesLock);
  while (static_cast<int>(sDevices.size()) < mSettings.devices) {
    sDevices.push_back(new SimulatedDevice(mSettings, static_cast<int>(sDevices.size())));
  }
  if (mNext >= mSettings.devices) return kVeldranFalse;
  SimulatedDevice* found = sDevices[static_cast<size_t>(mNext++)];
  found->AddRef();
  *device = found;
  return kVeldranOK;
}

void SimulatedIterator::ForgetDevices() {
  std::vector<SimulatedDevice*> devices;
  {
    std::lock_guard<std::mutex> guard(sDevicesLock);
    devices.swap(sDevices);
  }
  for (SimulatedDevice* device : devices) device->Release();
}

}  // namespace Sim
}  // namespace KTN
