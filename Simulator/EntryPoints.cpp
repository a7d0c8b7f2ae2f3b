// The simulated card's library entry points: the four factories of the device API, and a reload
// of the settings for tests.
#include "DeviceAPI/VeldranAPI.h"
#include "Simulator/GLPreviewHelper.h"
#include "Simulator/SimulatedConversion.h"
#include "Simulator/SimulatedDevice.h"
#include "Simulator/SimulatorSettings.h"

#define VELDRAN_EXPORT extern "C" __attribute__((visibility("default")))

VELDRAN_EXPORT IVeldranIterator* CreateVeldranIteratorInstance_0001(void) {
  return new KTN::Sim::SimulatedIterator(KTN::Sim::Settings());
}

VELDRAN_EXPORT IVeldranGLScreenPreviewHelper* CreateOpenGLScreenPreviewHelper_0001(void) {
  return new KTN::Sim::GLPreviewHelper;
}

// There is no Cocoa on this platform: the preview goes through the OpenGL helper.
VELDRAN_EXPORT IVeldranScreenPreviewCallback* CreateCocoaScreenPreview_0001(void*) {
  return nullptr;
}

VELDRAN_EXPORT IVeldranVideoConversion* CreateVideoConversionInstance_0001(void) {
  return new KTN::Sim::SimulatedConversion;
}

// Not part of the device API: reads the VELDRAN_SIM_* variables again and forgets the cards
// made so far, so that a test can change the simulated hardware within one process.
VELDRAN_EXPORT void VeldranSimulatorReloadSettings(void) {
  KTN::Sim::ReloadSettings();
  KTN::Sim::SimulatedIterator::ForgetDevices();
}
