// The settings dialog on Linux.
#include "Settings/LinuxSettingsDialog.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>

#include <QApplication>
#include <QWidget>

#include "DeviceAPI/VeldranAPI.h"
#include "Record/CapPriv.h"
#include "Settings/CaptureSettingsWindowController.h"
#include "Settings/CaptureTables.h"
#include "Util/DeviceResult.h"
#include "Util/Log.h"

namespace KTN {

namespace {

const char* sLayoutPathForTesting = nullptr;
constexpr uint32_t kModeRecords = 32;

}  // namespace

void SetSettingsLayoutPathForTesting(const char* path) {
  sLayoutPathForTesting = path;
}

std::string SettingsLayoutPath() {
  if (sLayoutPathForTesting) return sLayoutPathForTesting;
  // The library this code lives in: <bundle>/Contents/Linux/KestrinCapture.so.
  Dl_info info;
  char resolved[PATH_MAX];
  if (!dladdr(reinterpret_cast<void*>(&SetSettingsLayoutPathForTesting), &info) || !info.dli_fname ||
      !realpath(info.dli_fname, resolved)) {
    return "Settings.ui";
  }
  std::string library = resolved;
  std::string contents = library.substr(0, library.rfind('/'));
  contents = contents.substr(0, contents.rfind('/'));
  return contents + "/Resources/Settings.ui";
}

SettingsDialog* SettingsDialog::Create(rmStdParms* stdParms, CaptureSettings* settings) {
  // The host owns the application object; without one there is no window to show.
  if (!qobject_cast<QApplication*>(QCoreApplication::instance())) return nullptr;
  return new LinuxSettingsDialog(stdParms, settings, SettingsLayoutPath());
}

LinuxSettingsDialog::LinuxSettingsDialog(rmStdParms* stdParms, CaptureSettings* settings, std::string uiPath)
    : SettingsDialog(stdParms, settings), mUiPath(std::move(uiPath)) {}

long LinuxSettingsDialog::Run(CapPriv* instance) {
  // The controller only knows its layout here; the layout is loaded by window(), once the
  // card has said what it receives.
  CaptureSettingsWindowController controller(mUiPath);
  IVeldranDeviceControl* device = instance ? instance->deviceControl : nullptr;
  if (!device) {
    KTN_LOG("GetSupportedInputDisplayModes returned %ld (0x%lx)", static_cast<long>(kVeldranFail),
            Util::DeviceHex(kVeldranFail));
    return kVeldranFail;
  }
  VeldranDeviceModeRecord modes[kModeRecords];
  uint32_t count = 0;
  if (VeldranResult rc = device->GetSupportedInputDisplayModes(modes, sizeof modes, &count)) {
    KTN_LOG("GetSupportedInputDisplayModes returned %ld (0x%lx)", static_cast<long>(rc), Util::DeviceHex(rc));
    return rc;
  }
  // A standard is receivable when a device mode has its size and its rate within 15/65536
  // frames a second; display-mode codes are never compared.
  uint64_t supported = 0;
  for (size_t i = 0; i < kSupportedStandardCount; ++i) {
    const SupportedStandard& row = gSupportedStandards[i];
    if (!row.name) continue;
    uint32_t rate = ((row.timeScale << 16) + row.frameDuration / 2) / row.frameDuration;
    for (uint32_t m = 0; m < count && m < kModeRecords; ++m) {
      int32_t difference = static_cast<int32_t>(rate - modes[m].frameRate);
      if (modes[m].width == row.width && modes[m].height == row.height && difference >= -15 && difference <= 15) {
        supported |= uint64_t{1} << i;
      }
    }
  }
  VeldranHardwareDescription description = {};
  description.size = sizeof description;
  if (VeldranResult rc = device->GetHardwareDescription(&description)) {
    KTN_LOG("GetHardwareDescription returned %ld (0x%lx)", static_cast<long>(rc), Util::DeviceHex(rc));
    return rc;
  }
  if (!controller.window()) {
    KTN_LOG("Failed to create settings window controller");
    return 12;
  }
  controller.setSettings(mSettings);
  controller.setMainWindow(static_cast<QWidget*>(mMainWindow));
  controller.setSupportedStandards(supported);
  controller.setSupports_v210HD(!(description.flags & ktnHardwareFlagNo10BitYUVInHD));
  controller.setSupports_r210((description.flags & ktnHardwareFlag10BitRGBCapture) != 0);
  controller.populateStandardsMenu();
  controller.populateFormatsMenu();
  controller.setAudioMenus();
  if (long rc = controller.run()) {
    KTN_LOG("Got error %ld running settings dialog", rc);
    return rc;
  }
  if (controller.getCancelled()) mCancelled = true;
  return 0;
}

}  // namespace KTN
