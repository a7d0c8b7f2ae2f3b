// Reads arbitrary bytes as the user's remembered-choices file, as a hand edit might leave it.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "Settings/CaptureTables.h"
#include "Settings/UserDefaults.h"

namespace {

// In memory where the machine has /dev/shm: saving the file (a lock file, a temporary
// file, a rename) is most of an input's time on a disk.
std::string ScratchFile() {
  static std::string path;
  if (path.empty()) {
    char inMemory[] = "/dev/shm/ktn-fuzz-defaults-XXXXXX";
    char onDisk[] = "/tmp/ktn-fuzz-defaults-XXXXXX";
    const char* folder = mkdtemp(inMemory);
    if (!folder) folder = mkdtemp(onDisk);
    if (!folder) abort();
    path = std::string(folder) + "/KestrinCapture.ini";
    // The folder goes when libFuzzer ends the run.
    atexit([] {
      std::string lockFile = path + ".lock";
      unlink(lockFile.c_str());
      unlink(path.c_str());
      rmdir(path.substr(0, path.rfind('/')).c_str());
    });
  }
  return path;
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
