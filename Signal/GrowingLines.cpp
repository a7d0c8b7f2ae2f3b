// A growing text file's new whole lines.
#include "Signal/GrowingLines.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Movie/MovieLock.h"
#include "Util/Log.h"

namespace KTN {

GrowingLines::~GrowingLines() {
  if (mFd >= 0) close(mFd);
}

long GrowingLines::ReadNew(std::vector<std::string>* lines, size_t maxBytes) {
  mRestarted = false;
  if (mFd < 0) {
    long error = 0;
    // Only a regular file, never anything that could block or act on its opening.
    mFd = MovieLock::OpenRegular(mPath, O_RDONLY | O_NOCTTY, error, false);
    if (mFd < 0) {
      if (error == ENOENT) return 0;
      KTN_LOG("%s cannot be followed: %s", mPath.c_str(),
              error == EINVAL ? "it is not a regular file" : strerror(static_cast<int>(error)));
      return error;
    }
  }
  struct stat info = {};
  if (fstat(mFd, &info) != 0) {
    long rc = errno;
    KTN_LOG("fstat(%s) failed with errno %ld (%s)", mPath.c_str(), rc, strerror(errno));
    return rc;
  }
  const uint64_t size = static_cast<uint64_t>(info.st_size);
  if (size < mOffset) {
    mOffset = 0;
    mPartial.clear();
    mRestarted = true;
  }
  std::vector<char> buffer(64 * 1024);
  size_t taken = 0;
  while (mOffset < size && taken < maxBytes) {
    ssize_t n = pread(mFd, buffer.data(), buffer.size(), static_cast<off_t>(mOffset));
    if (n < 0) {
      if (errno == EINTR) continue;
      long rc = errno;
      KTN_LOG("pread(%s) failed with errno %ld (%s)", mPath.c_str(), rc, strerror(errno));
      return rc;
    }
    if (n == 0) break;
    mOffset += static_cast<uint64_t>(n);
    taken += static_cast<size_t>(n);
    const char* at = buffer.data();
    const char* end = at + n;
    while (at < end) {
      const char* feed = static_cast<const char*>(memchr(at, '\n', static_cast<size_t>(end - at)));
      if (!feed) {
        mPartial.append(at, end);
        break;
      }
      mPartial.append(at, feed + 1);
      lines->push_back(std::move(mPartial));
      mPartial.clear();
      at = feed + 1;
    }
  }
  return 0;
}

}  // namespace KTN
