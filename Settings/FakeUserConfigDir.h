// Test double: a private configuration directory, so tests never touch the real user's defaults.
#pragma once

#include <string>

namespace KTN {

// Set up before the first test runs (before anything asks for the standard user defaults):
// points XDG_CONFIG_HOME at a fresh temporary directory and removes it when the tests end.
class FakeUserConfigDir {
 public:
  // The temporary directory standing in for the user's configuration directory.
  static const std::string& Path();
  // Removes the defaults file, so that the next read finds the user defaults empty.
  static void ClearDefaults();
};

}  // namespace KTN
