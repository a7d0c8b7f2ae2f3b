// The settings dialog on Linux: not available in this build (no window toolkit linked).
#include "Settings/SettingsDialog.h"

namespace KTN {

SettingsDialog::SettingsDialog(rmStdParms*, CaptureSettings* settings) : mSettings(settings) {}

SettingsDialog* SettingsDialog::Create(rmStdParms*, CaptureSettings*) {
  return nullptr;
}

}  // namespace KTN
