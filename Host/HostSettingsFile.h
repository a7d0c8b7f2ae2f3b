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
// The stored blob when it is one the plug-in can record with, otherwise the defaults. A
// file that is there but unusable (cut short, another program's, or values that no standard
// and format make) is not used: *problem then says so in one line naming the file, so that
// the user learns why the take is not in the settings they chose. No file: the defaults, no
// problem.
CaptureSettings HostSettingsOrDefaults(std::string* problem);
// Writes the blob through a temporary file and a rename. Returns an empty string or the
// reason in one line.
std::string SaveHostSettings(const CaptureSettings& settings);

}  // namespace KTN
