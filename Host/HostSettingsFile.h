// The host program's own copy of the plug-in's 60-byte settings blob, kept with its preferences.
#pragma once

#include <string>

#include "Settings/CaptureSettings.h"

namespace KTN {

// $XDG_CONFIG_HOME (or ~/.config)/kestrin-design/kestrin-capture.settings
std::string HostSettingsPath();

// The stored blob; false when there is none or it is not 60 bytes (the plug-in then takes
// its defaults, as it does with an unsigned blob).
bool LoadHostSettings(CaptureSettings& settings);
// Writes the blob through a temporary file and a rename. Returns an empty string or the
// reason in one line.
std::string SaveHostSettings(const CaptureSettings& settings);

}  // namespace KTN
