// For tests: a tmpfs of a few megabytes of the test's own, to fill up or to mount read-only.
#pragma once

#include <errno.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <unistd.h>

#include <string>

namespace KTN {
namespace Util {

// Mounting needs root (as CI runs); Mounted() is false elsewhere and Error() says why.
class SmallDisk {
 public:
  // size as mount takes it ("16m"); readOnly mounts it so that nothing can be created.
  explicit SmallDisk(const char* size, bool readOnly = false) {
    char pattern[] = "/tmp/ktn-small-disk-XXXXXX";
    if (!mkdtemp(pattern)) {
      mError = errno;
      return;
    }
    mPath = pattern;
    std::string options = std::string("size=") + size;
    unsigned long flags = MS_NOSUID | MS_NODEV | (readOnly ? MS_RDONLY : 0);
    if (mount("tmpfs", mPath.c_str(), "tmpfs", flags, options.c_str()) == 0) {
      mMounted = true;
    } else {
      mError = errno;
    }
  }
  ~SmallDisk() {
    if (mMounted) umount2(mPath.c_str(), MNT_DETACH);
    if (!mPath.empty()) rmdir(mPath.c_str());
  }

  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  bool Mounted() const { return mMounted; }
  int Error() const { return mError; }
  std::string File(const std::string& name) const { return mPath + "/" + name; }
  const std::string& Path() const { return mPath; }

 private:
  std::string mPath;
  bool mMounted = false;
  int mError = 0;
};

}  // namespace Util
}  // namespace KTN
