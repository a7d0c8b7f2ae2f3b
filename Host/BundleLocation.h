// Where the host program finds the plug-in bundle: beside itself in a build tree, or where an install puts it.
#pragma once

#include <string>

namespace KTN {

// The places are tried in order; the first that holds a bundle directory wins.
class BundleLocation {
 public:
  // For a program at programPath (an absolute path to the executable file):
  // <its folder>/KestrinCapture.bundle (the build tree's layout), then
  // <its folder>/../lib/kestrin-capture/KestrinCapture.bundle (an installed tree's layout,
  // bin/ beside lib/). When neither exists, the first, so that the load's failure line names
  // the place a developer expects.
  static std::string ForProgram(const std::string& programPath);

  // ForProgram of this process's own executable; "KestrinCapture.bundle" (in the current
  // folder) when the executable's path cannot be read.
  static std::string ForThisProgram();
};

}  // namespace KTN
