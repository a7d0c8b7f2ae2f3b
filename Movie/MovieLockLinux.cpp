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

#include "Movie/MovieSidecars.h"
#include "Movie/MovieSummary.h"
#include "Util/FileKind.h"
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

int MovieLock::OpenRegular(const std::string& path, int flags, long& error, bool report) {
  struct stat info;
  if (stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode)) {
    if (report) KTN_LOG("The movie %s is %s, not a regular file: refused", path.c_str(), Util::FileKind(info.st_mode));
    error = EINVAL;
    return -1;
  }
  int fd = open(path.c_str(), flags | O_NONBLOCK | O_CLOEXEC, 0644);
  if (fd < 0) {
    error = errno;
    if (report) KTN_LOG("open(%s) failed with errno %ld (%s)", path.c_str(), error, strerror(static_cast<int>(error)));
    return -1;
  }
  if (fstat(fd, &info) != 0) {
    error = errno;
    if (report) KTN_LOG("fstat(%s) failed with errno %ld (%s)", path.c_str(), error, strerror(static_cast<int>(error)));
    close(fd);
    return -1;
  }
  if (!S_ISREG(info.st_mode)) {
    if (report) KTN_LOG("The movie %s is %s, not a regular file: refused", path.c_str(), Util::FileKind(info.st_mode));
    close(fd);
    error = EINVAL;
    return -1;
  }
  return fd;
}

int MovieLock::OpenLocked(const std::string& path, int flags, long& error, std::string& why) {
  int fd = OpenRegular(path, flags, error, false);
  struct stat info = {};
  if (fd < 0) {
    why = error == EINVAL && stat(path.c_str(), &info) == 0
              ? "it is " + std::string(Util::FileKind(info.st_mode)) + ", not a regular file"
              : std::string(strerror(static_cast<int>(error)));
    return -1;
  }
  if ((error = TryLock(fd))) {
    const std::string writer = Holder(fd);
    why = error == EBUSY ? "it is being written by " + (writer.empty() ? std::string("another process") : writer)
                         : std::string(strerror(static_cast<int>(error)));
    close(fd);
    return -1;
  }
  return fd;
}

int MovieLock::CreateEmptied(const std::string& path, long& error) {
  // Not truncated on opening: a movie another process writes must be left as it is.
  int fd = OpenRegular(path, O_WRONLY | O_CREAT, error);
  if (fd < 0) return -1;
  if (long rc = TryLock(fd)) {
    if (rc == EBUSY) {
      std::string holder = Holder(fd);
      KTN_LOG("The movie %s is being written by %s: refused", path.c_str(), holder.empty() ? "another process" : holder.c_str());
    }
    close(fd);
    error = rc;
    return -1;
  }
  if (ftruncate(fd, 0) != 0) {
    error = errno;
    KTN_LOG("ftruncate(%s, 0) failed with errno %ld (%s)", path.c_str(), error, strerror(static_cast<int>(error)));
    close(fd);
    return -1;
  }
  return fd;
}

bool MovieLock::RemoveIfUnrecorded(const std::string& path) {
  long error = 0;
  int fd = OpenRegular(path, O_RDONLY, error, false);
  if (fd < 0) return false;  // gone, or no longer a file of ours to remove
  struct stat opened, named;
  // Under the lock nobody writes it: what it holds now is what would be removed.
  bool unrecorded = TryLock(fd) == 0 && fstat(fd, &opened) == 0;
  if (unrecorded && opened.st_size > 0) {
    MovieSummary summary;
    unrecorded = summary.Read(path) == 0 && summary.layout != MovieSummary::Layout::kNotAMovie &&
                 summary.pictures == 0 && summary.soundFrames == 0;
  }
  // The name must still be the file that was looked at.
  bool removed = false;
  if (unrecorded && stat(path.c_str(), &named) == 0 && named.st_dev == opened.st_dev && named.st_ino == opened.st_ino) {
    removed = unlink(path.c_str()) == 0;
    if (!removed) KTN_LOG("unlink(%s) failed with errno %ld (%s)", path.c_str(), static_cast<long>(errno), strerror(errno));
    // Its sidecars describe no sample either.
    for (const std::string& sidecar : MovieSidecars::All(path)) {
      if (removed) MovieSidecars::Remove(sidecar);
    }
  }
  close(fd);
  return removed;
}

}  // namespace KTN
