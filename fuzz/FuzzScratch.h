// A scratch folder for one fuzzing process, in memory where the machine has /dev/shm.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace KTN {

// The folder (prefix such as "ktn-fuzz-server"), made on first use and removed with all the
// target left in it when libFuzzer ends the run. In memory because the targets save files
// (the defaults store through a lock file and a rename, a finished movie with a sync), and
// on a shared disk every input would wait for everyone's writes.
inline const std::string& FuzzScratchFolder(const char* prefix) {
  static std::string folder;
  if (folder.empty()) {
    for (const char* parent : {"/dev/shm", "/tmp"}) {
      std::string pattern = std::string(parent) + "/" + prefix + "-XXXXXX";
      if (mkdtemp(&pattern[0])) {
        folder = pattern;
        break;
      }
    }
    if (folder.empty()) abort();
    atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(folder, ignored);
    });
  }
  return folder;
}

}  // namespace KTN
