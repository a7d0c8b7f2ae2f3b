// The platform-neutral part of the settings dialog: the host's parameters and main window.
#include "Settings/SettingsDialog.h"

#include <string.h>

#include "Util/Log.h"

namespace KTN {

namespace {

const char kWindowSuite[] = "Premiere Window Suite";
constexpr int32_t kWindowSuiteVersion = 1;

SPBasicSuite* BasicSuiteOf(const rmStdParms& parms) {
  if (!parms.suites || !parms.suites->utilityFuncs || !parms.suites->utilityFuncs->getSPBasicSuite) return nullptr;
  return parms.suites->utilityFuncs->getSPBasicSuite();
}

}  // namespace

SettingsDialog::SettingsDialog(rmStdParms* stdParms, CaptureSettings* settings) : mSettings(settings) {
  if (!stdParms) {
    KTN_LOG("Invalid stdParms");
    return;
  }
  memcpy(&mStdParms, stdParms, sizeof mStdParms);
  SPBasicSuite* basic = BasicSuiteOf(mStdParms);
  if (!basic) {
    KTN_LOG("Failed to get SP Basic Suite");
    return;
  }
  const void* suite = nullptr;
  if (basic->acquireSuite(kWindowSuite, kWindowSuiteVersion, &suite) != 0 || !suite) {
    KTN_LOG("Failed to get Window Suite");
    return;
  }
  mMainWindow = static_cast<const PremiereWindowSuite*>(suite)->getMainWindow();
  basic->releaseSuite(kWindowSuite, kWindowSuiteVersion);
}

SettingsDialog::~SettingsDialog() {
  if (!BasicSuiteOf(mStdParms)) KTN_LOG("Failed to get SP Basic Suite");
}

}  // namespace KTN
