// Test support: a folder of one test's own under the test run's scratch roots, removed with it.
#pragma once

#include <string>

namespace KTN {
namespace Util {

// Made under the build's scratch root (on the disk), or under its memory root for a test
// that writes much and wants no disk in the way. The object removes the folder and all it
// holds; a test that is killed leaves it to the run's clean-up, which removes both roots
// (a CTest fixture), so nothing outlives the run.
class ScratchFolder {
 public:
  enum class Where { kDisk, kMemory };
  explicit ScratchFolder(Where where = Where::kDisk);
  ~ScratchFolder();

  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& Path() const { return mPath; }
  std::string File(const std::string& name) const { return mPath + "/" + name; }

  // The two roots of this build's tests.
  static std::string DiskRoot();
  static std::string MemoryRoot();

 private:
  std::string mPath;
};

}  // namespace Util
}  // namespace KTN
