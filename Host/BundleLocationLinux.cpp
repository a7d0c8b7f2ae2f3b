// This program's own executable read from Linux's /proc/self/exe, for the bundle's place.
#include "Host/BundleLocation.h"

#include <limits.h>
#include <unistd.h>

namespace KTN {

std::string BundleLocation::ForThisProgram() {
  char self[PATH_MAX];
  ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
  if (length <= 0) return "KestrinCapture.bundle";
  return ForProgram(std::string(self, static_cast<size_t>(length)));
}

}  // namespace KTN
