// Checks arbitrary 60-byte blobs as the host hands settings records back.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "Settings/CaptureSettings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < KTN::kCaptureSettingsBlobSize) return 0;
  KTN::CaptureSettings settings;
  memcpy(&settings, data, sizeof settings);
  if (settings.IsRecordable()) {
    // Whatever passes is a record the tables make: its rows must rebuild it exactly.
    if (settings.width == 0 || settings.height == 0 || settings.timeScale == 0 || settings.frameDuration == 0) {
      __builtin_trap();
    }
  }
  return 0;
}
