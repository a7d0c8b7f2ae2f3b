// The record module's platform services on Linux: dladdr, iconv, open(2) and the movie's lock.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <iconv.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "HostAPI/HostInterface.h"
#include "Movie/MovieLock.h"
#include "Movie/MovieSummary.h"
#include "Record/RecordPlatform.h"
#include "Util/Log.h"

namespace KTN {

namespace {

const char* sServerPathForTesting = nullptr;

}  // namespace

// Nothing to collect on this platform: objects here are not autoreleased.
AutoreleaseScope::AutoreleaseScope() {}
AutoreleaseScope::~AutoreleaseScope() {}

void SetRecordServerPathForTesting(const char* path) {
  sServerPathForTesting = path;
}

std::string RecordServerPath() {
  if (sServerPathForTesting) return sServerPathForTesting;
  // The library this function lives in: <bundle>/Contents/Linux/KestrinCapture.so.
  Dl_info info;
  if (!dladdr(reinterpret_cast<void*>(&RecEntry), &info) || !info.dli_fname) {
    KTN_LOG("dladdr found no library for RecEntry");
    return std::string();
  }
  char resolved[PATH_MAX];
  if (!realpath(info.dli_fname, resolved)) {
    KTN_LOG("realpath(%s) failed with errno %ld (%s)", info.dli_fname, static_cast<long>(errno), strerror(errno));
    return std::string();
  }
  std::string library = resolved;
  size_t linuxFolder = library.rfind('/');
  size_t contents = linuxFolder == std::string::npos ? std::string::npos : library.rfind('/', linuxFolder - 1);
  if (contents == std::string::npos) return std::string();
  return library.substr(0, contents) + "/Resources/QTRecordServer";
}

bool Utf16ToUtf8(const uint16_t* text, int maxUnits, std::string& utf8) {
  int units = 0;
  while (units < maxUnits && text[units]) ++units;
  if (units == maxUnits) return false;
  iconv_t converter = iconv_open("UTF-8", "UTF-16LE");
  if (converter == reinterpret_cast<iconv_t>(-1)) {
    KTN_LOG("iconv_open(UTF-8, UTF-16LE) failed with errno %ld (%s)", static_cast<long>(errno), strerror(errno));
    return false;
  }
  // Each UTF-16 unit becomes at most three bytes of UTF-8.
  std::string out(static_cast<size_t>(units) * 3 + 1, '\0');
  char* in = const_cast<char*>(reinterpret_cast<const char*>(text));
  size_t inLeft = static_cast<size_t>(units) * 2;
  char* outPointer = &out[0];
  size_t outLeft = out.size();
  size_t rc = iconv(converter, &in, &inLeft, &outPointer, &outLeft);
  iconv_close(converter);
  if (rc == static_cast<size_t>(-1)) return false;
  out.resize(out.size() - outLeft);
  utf8 = out;
  return true;
}

namespace {

// Opens path for writing (with O_CREAT in flags: creating it) without waiting for anything:
// a FIFO without a reader fails at once rather than block. The descriptor of a regular file,
// or -1 with error set: the errno, or 22 when path names no regular file; one failure line
// when report is set.
int OpenRegularFile(const char* path, int flags, bool report, long& error) {
  int fd = open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC | flags, 0644);
  if (fd < 0) {
    error = errno;
    if (report) KTN_LOG("open(%s) failed with errno %ld (%s)", path, error, strerror(static_cast<int>(error)));
    return -1;
  }
  struct stat info;
  if (fstat(fd, &info) != 0) {
    error = errno;
    if (report) KTN_LOG("fstat(%s) failed with errno %ld (%s)", path, error, strerror(static_cast<int>(error)));
    close(fd);
    return -1;
  }
  if (!S_ISREG(info.st_mode)) {
    if (report) KTN_LOG("%s is not a regular file: no movie is written there", path);
    close(fd);
    error = EINVAL;
    return -1;
  }
  return fd;
}

}  // namespace

long CreateEmptyFile(const char* path) {
  long error = 0;
  int fd = OpenRegularFile(path, O_CREAT, true, error);
  if (fd < 0) return error;
  // A take another process is writing is not emptied under its feet.
  if (long rc = MovieLock::TryLock(fd)) {
    if (rc == EBUSY) {
      std::string holder = MovieLock::Holder(fd);
      KTN_LOG("%s is being written by %s", path, holder.empty() ? "another process" : holder.c_str());
    }
    close(fd);
    return rc;
  }
  if (ftruncate(fd, 0) != 0) {
    error = errno;
    KTN_LOG("ftruncate(%s) failed with errno %ld (%s)", path, error, strerror(static_cast<int>(error)));
    close(fd);
    return error;
  }
  close(fd);  // and with it the lock
  return 0;
}

void RemoveUnrecordedMovie(const char* path) {
  long error = 0;
  int fd = OpenRegularFile(path, 0, false, error);
  if (fd < 0) return;  // gone, or no longer a file of ours to remove
  struct stat opened, named;
  // Under the lock nobody writes it: what it holds now is what would be removed.
  bool unrecorded = MovieLock::TryLock(fd) == 0 && fstat(fd, &opened) == 0;
  if (unrecorded && opened.st_size > 0) {
    MovieSummary summary;
    unrecorded = summary.Read(path) == 0 && summary.layout != MovieSummary::Layout::kNotAMovie &&
                 summary.pictures == 0 && summary.soundFrames == 0;
  }
  // The name must still be the file that was looked at.
  if (unrecorded && stat(path, &named) == 0 && named.st_dev == opened.st_dev && named.st_ino == opened.st_ino &&
      unlink(path) != 0) {
    KTN_LOG("unlink(%s) failed with errno %ld (%s)", path, static_cast<long>(errno), strerror(errno));
  }
  close(fd);
}

}  // namespace KTN
