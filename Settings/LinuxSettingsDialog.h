// The settings dialog on Linux: Run with the Qt window controller.
#pragma once

#include <string>

#include "Settings/SettingsDialog.h"

namespace KTN {

class LinuxSettingsDialog : public SettingsDialog {
 public:
  LinuxSettingsDialog(rmStdParms* stdParms, CaptureSettings* settings, std::string uiPath);

  // Asks the card what it receives, then loads the window, fills the menus and runs the
  // modal loop. 0 when the dialog ran (Cancelled tells whether the user kept the choice);
  // the card's result when it cannot say what it receives (the window is then not loaded);
  // 12 when the window cannot be loaded.
  long Run(CapPriv* instance) override;

 private:
  std::string mUiPath;
};

// The layout file inside the plug-in's bundle: Contents/Resources/Settings.ui.
std::string SettingsLayoutPath();
// Tests that link the dialog into a program of their own point it at the layout.
void SetSettingsLayoutPathForTesting(const char* path);

}  // namespace KTN
