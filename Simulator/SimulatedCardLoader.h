// Test support: the simulated card's library loaded with chosen VELDRAN_SIM_* settings.
#pragma once

#include <initializer_list>
#include <utility>

#include "Capture/VeldranAPILoader.h"

namespace KTN {

using SimulatedCardSetting = std::pair<const char*, const char*>;

// Sets the given variables (every other VELDRAN_SIM_* unset, the speed 0 unless given),
// loads the card's library inside bundlePath, makes it read its settings again and makes
// it this process's device API. Returns its entry points.
VeldranEntryPoints UseSimulatedCard(const char* bundlePath, std::initializer_list<SimulatedCardSetting> settings);

// Only sets the variables as UseSimulatedCard does, for a card that a plug-in will load
// itself later in this process.
void SetSimulatedCardEnvironment(std::initializer_list<SimulatedCardSetting> settings);

}  // namespace KTN
