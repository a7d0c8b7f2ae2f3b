// The capture settings in one line, as the capture window shows them while idle.
#pragma once

#include <string>

#include "Settings/CaptureSettings.h"

namespace KTN {

// "HD 1080i 50 · Uncompressed 10-bit 4:2:2 · 2 ch 24-bit 48 kHz": the standard and format by
// their table names (found by the record's values, as the settings dialog finds them), then
// the sound. A record no table row matches is described by its own values instead
// ("1920x1080 25 fps", "codec 'abcd'"), so that any blob reads as something. UTF-8; any thread.
std::string SettingsDescription(const CaptureSettings& settings);

}  // namespace KTN
