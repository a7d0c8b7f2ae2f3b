// Test support: the simulated card's library loaded with chosen settings.
#include "Simulator/SimulatedCardLoader.h"

#include <dlfcn.h>
#include <stdlib.h>

#include <string>

namespace KTN {

namespace {

const char* const kVariables[] = {"VELDRAN_SIM_DEVICES", "VELDRAN_SIM_HARDWARE_FLAGS", "VELDRAN_SIM_TIMECODE",
                                  "VELDRAN_SIM_TIMECODE_START", "VELDRAN_SIM_DECK", "VELDRAN_SIM_CUE",
                                  "VELDRAN_SIM_SPEED", "VELDRAN_SIM_FAIL", "VELDRAN_SIM_SOURCE",
                                  "VELDRAN_SIM_FORMAT_DETECTION", "VELDRAN_SIM_FRAMES", "VELDRAN_SIM_EVENTS"};

}  // namespace

void SetSimulatedCardEnvironment(std::initializer_list<SimulatedCardSetting> settings) {
  for (const char* name : kVariables) unsetenv(name);
  setenv("VELDRAN_SIM_SPEED", "0", 1);
  for (const SimulatedCardSetting& setting : settings) setenv(setting.first, setting.second, 1);
}

VeldranEntryPoints UseSimulatedCard(const char* bundlePath, std::initializer_list<SimulatedCardSetting> settings) {
  SetSimulatedCardEnvironment(settings);
  VeldranEntryPoints entryPoints = LoadVeldranAPI(bundlePath);
  std::string library = std::string(bundlePath) + "/Contents/Linux/VeldranAPI.so";
  void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  auto reload = reinterpret_cast<void (*)()>(handle ? dlsym(handle, "VeldranSimulatorReloadSettings") : nullptr);
  if (reload) reload();
  SetVeldranEntryPointsForTesting(entryPoints);
  return entryPoints;
}

}  // namespace KTN
