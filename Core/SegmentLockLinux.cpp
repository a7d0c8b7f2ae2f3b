// The segment lock on Linux: named segments are files of /dev/shm, and the lock file lies beside them.
#include "Core/SegmentLock.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "Util/Log.h"

namespace KTN {
namespace Core {

namespace {

// Where the system keeps named segments: a segment "name" is the file /dev/shm/name.
std::string SegmentPath(const char* key) {
  return std::string("/dev/shm/") + (key[0] == '/' ? key + 1 : key);
}

}  // namespace

SegmentLock::SegmentLock(const char* key) : mPath(SegmentPath(key ? key : "") + ".lock") {}

SegmentLock::~SegmentLock() {
  // The lock file is removed by whoever can take the lock as it closes, so that nothing is
  // left beside the segments. Safe while another process holds the file open: removal only
  // happens under the lock, and a holder whose file was removed takes the new one instead.
  if (mFd >= 0 && (mHeld || flock(mFd, LOCK_EX | LOCK_NB) == 0)) {
    mHeld = true;
    if (!Removed() && unlink(mPath.c_str()) != 0 && errno != ENOENT && errno != EPERM && errno != EACCES) {
      KTN_LOG("unlink(%s) failed with errno %d (%s)", mPath.c_str(), errno, strerror(errno));
    }
  }
  Release();
  if (mFd >= 0) close(mFd);
}

bool SegmentLock::Removed() const {
  struct stat info;
  return fstat(mFd, &info) == 0 && info.st_nlink == 0;
}

long SegmentLock::Open() {
  if (mFd >= 0) return 0;
  mFd = open(mPath.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0666);
  if (mFd < 0 && errno == EACCES) mFd = open(mPath.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (mFd < 0) {
    long error = errno;
    KTN_LOG("open(%s) failed with errno %ld (%s)", mPath.c_str(), error, strerror(errno));
    return error;
  }
  // Every user's recordings take the same lock: readable and writable by all, whatever the
  // creator's umask (only the file's owner can change that, and nothing else is in it).
  struct stat info;
  if (fstat(mFd, &info) == 0 && info.st_uid == geteuid() && (info.st_mode & 0777) != 0666) fchmod(mFd, 0666);
  return 0;
}

long SegmentLock::Acquire(std::chrono::steady_clock::time_point deadline) {
  if (mHeld) return 0;
  for (;;) {
    if (long rc = Open()) return rc;
    if (flock(mFd, LOCK_EX | LOCK_NB) == 0) {
      if (!Removed()) {
        mHeld = true;
        return 0;
      }
      // Its last holder removed the file while this one waited: the lock now is the file
      // at the path (made anew if need be).
      close(mFd);
      mFd = -1;
      continue;
    }
    if (errno == EINTR) continue;
    if (errno != EWOULDBLOCK) {
      long error = errno;
      KTN_LOG("flock(%s) failed with errno %ld (%s)", mPath.c_str(), error, strerror(errno));
      return error;
    }
    // Another process is between creating its segment and removing it: a few milliseconds.
    if (std::chrono::steady_clock::now() >= deadline) return EAGAIN;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void SegmentLock::Release() {
  if (!mHeld) return;
  if (flock(mFd, LOCK_UN) != 0) KTN_LOG("flock(%s, LOCK_UN) failed with errno %d (%s)", mPath.c_str(), errno, strerror(errno));
  mHeld = false;
}

long SegmentLock::Owner(const char* key, uid_t& owner) {
  struct stat info;
  if (lstat(SegmentPath(key).c_str(), &info) != 0) return errno;
  owner = info.st_uid;
  return 0;
}

}  // namespace Core
}  // namespace KTN
