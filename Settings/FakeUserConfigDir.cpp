// Test double: a private configuration directory set up before any test runs.
#include "Settings/FakeUserConfigDir.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>

#include "Settings/UserDefaults.h"
#include "Util/ScratchFolder.h"

namespace KTN {

namespace {

std::string MakeDirectory() {
  static Util::ScratchFolder folder;  // removed at exit, or by the run's clean-up
  if (folder.Path().empty()) abort();
  setenv("XDG_CONFIG_HOME", folder.Path().c_str(), 1);
  return folder.Path();
}

// Set up before the first test reaches the store (and not at all when tests are only
// listed), removed after the last.
class PrivateConfigDirectory : public testing::Environment {
 public:
  void SetUp() override { FakeUserConfigDir::Path(); }
  void TearDown() override { std::filesystem::remove_all(FakeUserConfigDir::Path()); }
};

const bool sRegistered = (testing::AddGlobalTestEnvironment(new PrivateConfigDirectory), true);

}  // namespace

const std::string& FakeUserConfigDir::Path() {
  static const std::string sPath = MakeDirectory();
  return sPath;
}

void FakeUserConfigDir::ClearDefaults() {
  std::filesystem::remove(UserDefaults::Standard().Path());
}

}  // namespace KTN
