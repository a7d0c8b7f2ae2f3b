// The one-writer lock of a movie file: flock on the open file, its holder read from /proc/locks.
#include "Movie/MovieLock.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "Util/Log.h"
#include "Util/ProcessDescription.h"

namespace KTN {

namespace {

// The holder of a flock on the file with this device and inode, from the kernel's table of
// locks: each line reads "N: FLOCK ADVISORY WRITE PID MAJ:MIN:INODE START END" (a line of a
// lock someone waits for has "->" after its number).
std::string HolderOf(dev_t device, ino_t inode) {
  FILE* locks = fopen("/proc/locks", "re");
  if (!locks) return std::string();
  std::string holder;
  char line[512];
  while (holder.empty() && fgets(line, sizeof line, locks)) {
    char kind[16], mode[16], access[16];
    long pid = 0;
    unsigned major = 0, minor = 0;
    unsigned long long number = 0;
    if (strstr(line, "->")) continue;
    if (sscanf(line, "%*d: %15s %15s %15s %ld %x:%x:%llu", kind, mode, access, &pid, &major, &minor, &number) != 7) {
      continue;
    }
    if (strcmp(kind, "FLOCK") != 0 || pid <= 0 || number != inode || makedev(major, minor) != device) continue;
    holder = Util::ProcessDescription::Of(pid);
  }
  fclose(locks);
  return holder;
}

}  // namespace

long MovieLock::TryLock(int fd) {
  if (flock(fd, LOCK_EX | LOCK_NB) == 0) return 0;
  long error = errno;
  if (error == EWOULDBLOCK) return EBUSY;
  KTN_LOG("flock(%d) failed with errno %ld (%s)", fd, error, strerror(static_cast<int>(error)));
  return error;
}

void MovieLock::Unlock(int fd) {
  flock(fd, LOCK_UN);
}

std::string MovieLock::Holder(int fd) {
  struct stat info;
  if (fstat(fd, &info) != 0) return std::string();
  return HolderOf(info.st_dev, info.st_ino);
}

std::string MovieLock::Holder(const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) return std::string();
  return HolderOf(info.st_dev, info.st_ino);
}

}  // namespace KTN
