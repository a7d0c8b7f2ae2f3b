// Test support: per-test scratch folders under the run's roots.
#include "Util/ScratchFolder.h"

#include <stdlib.h>

#include <filesystem>
#include <system_error>

namespace KTN {
namespace Util {

std::string ScratchFolder::DiskRoot() {
  return KTN_TEST_SCRATCH;
}

std::string ScratchFolder::MemoryRoot() {
  return KTN_TEST_MEMORY_SCRATCH;
}

ScratchFolder::ScratchFolder(Where where) {
  std::string root = where == Where::kMemory ? MemoryRoot() : DiskRoot();
  std::error_code ignored;
  std::filesystem::create_directories(root, ignored);
  std::string pattern = root + "/test-XXXXXX";
  if (mkdtemp(&pattern[0])) mPath = pattern;
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  if (!mPath.empty()) std::filesystem::remove_all(mPath, ignored);
}

}  // namespace Util
}  // namespace KTN
