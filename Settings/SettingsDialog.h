// The capture settings dialog: the user picks standard, format and audio in a modal window.
#pragma once

#include "Host/HostInterface.h"
#include "Settings/CaptureSettings.h"

namespace KTN {

struct CapPriv;

class SettingsDialog {
 public:
  // A new dialog of this platform, owned by the caller; null when the platform cannot show
  // one.
  static SettingsDialog* Create(rmStdParms* stdParms, CaptureSettings* settings);

  SettingsDialog(rmStdParms* stdParms, CaptureSettings* settings);
  virtual ~SettingsDialog() = default;

  SettingsDialog(const SettingsDialog&) = delete;
  SettingsDialog& operator=(const SettingsDialog&) = delete;

  // Shows the dialog and returns when it is closed: 0, or an error with its failure line.
  virtual long Run(CapPriv* instance) = 0;

  bool Cancelled() const { return mCancelled; }

 protected:
  bool mCancelled = false;
  CaptureSettings* mSettings;  // edited in place on OK; borrowed
  void* mMainWindow = nullptr; // the host's main window, or null
};

}  // namespace KTN
