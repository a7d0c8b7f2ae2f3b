// The capture settings dialog: the user picks standard, format and audio in a modal window.
#pragma once

#include "HostAPI/HostInterface.h"
#include "Settings/CaptureSettings.h"

namespace KTN {

struct CapPriv;

// Created, run once and deleted on the host's main thread during its show-options call.
class SettingsDialog {
 public:
  // A new dialog of this platform, owned by the caller; null when none can be shown (no
  // window system in this host).
  static SettingsDialog* Create(rmStdParms* stdParms, CaptureSettings* settings);

  // Takes over the host's standard parameters and finds the host's main window through the
  // window suite. settings is borrowed and edited in place on OK.
  SettingsDialog(rmStdParms* stdParms, CaptureSettings* settings);
  virtual ~SettingsDialog();

  SettingsDialog(const SettingsDialog&) = delete;
  SettingsDialog& operator=(const SettingsDialog&) = delete;

  // Shows the dialog and returns when it is closed: 0, or an error with its failure line.
  virtual long Run(CapPriv* instance) = 0;

  bool Cancelled() const { return mCancelled; }

 protected:
  bool mCancelled = false;
  CaptureSettings* mSettings;
  rmStdParms mStdParms = {};
  void* mMainWindow = nullptr;  // the host's main window, or null
};

}  // namespace KTN
