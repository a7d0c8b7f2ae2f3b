// Reads arbitrary bytes as the user's remembered-choices file, as a hand edit might leave it.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "Settings/CaptureTables.h"
#include "Settings/UserDefaults.h"
#include "fuzz/FuzzScratch.h"

namespace {

std::string ScratchFile() {
  return KTN::FuzzScratchFolder("ktn-fuzz-defaults") + "/KestrinCapture.ini";
}

bool IsChannelCount(int value) {
  return value == 2 || value == 8 || value == 16;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string path = ScratchFile();
  FILE* file = fopen(path.c_str(), "wb");
  if (!file) return 0;
  fwrite(data, 1, size, file);
  fclose(file);
  {
    KTN::UserDefaults defaults(path);
    const KTN::UserDefaults::Registration registrations[] = {
        {"com_kestrin_design_premiere_record_video_standard", 1, KTN::IsNamedStandardIndex},
        {"com_kestrin_design_premiere_record_video_format", 0, KTN::IsPixelFormatIndex},
        {"com_kestrin_design_premiere_record_audio_channels", 2, IsChannelCount},
    };
    defaults.RegisterDefaults(registrations, 3);
    // Validated keys never come back out of their sets, whatever the file says.
    if (!KTN::IsNamedStandardIndex(defaults.IntegerForKey(registrations[0].key))) __builtin_trap();
    if (!KTN::IsPixelFormatIndex(defaults.IntegerForKey(registrations[1].key))) __builtin_trap();
    if (!IsChannelCount(defaults.IntegerForKey(registrations[2].key))) __builtin_trap();
    defaults.IntegerForKey("com_kestrin_design_premiere_record_audio_type");
    defaults.SetInteger("com_kestrin_design_premiere_record_audio_rate", 48000);
    defaults.Synchronize();
  }
  unlink(path.c_str());
  return 0;
}
