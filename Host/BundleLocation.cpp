// Where the host program finds the plug-in bundle, given the path of its executable.
#include "Host/BundleLocation.h"

#include <sys/stat.h>

namespace KTN {

namespace {

bool IsFolder(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace

std::string BundleLocation::ForProgram(const std::string& programPath) {
  const std::string::size_type slash = programPath.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : programPath.substr(0, slash);
  const std::string beside = folder + "/KestrinCapture.bundle";
  if (IsFolder(beside)) return beside;
  const std::string installed = folder + "/../lib/kestrin-capture/KestrinCapture.bundle";
  if (IsFolder(installed)) return installed;
  return beside;
}

}  // namespace KTN
