// Whole reads and writes of a descriptor, through short and interrupted calls.
#include "Util/FileIo.h"

#include <errno.h>
#include <unistd.h>

namespace KTN {
namespace Util {

long FileIo::WriteAll(int fd, const void* data, size_t size, int64_t offset) {
  const uint8_t* bytes = static_cast<const uint8_t*>(data);
  size_t done = 0;
  while (done < size) {
    ssize_t put = offset < 0 ? write(fd, bytes + done, size - done)
                             : pwrite(fd, bytes + done, size - done, static_cast<off_t>(offset) + static_cast<off_t>(done));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return errno;
    if (put == 0) return EIO;
    done += static_cast<size_t>(put);
  }
  return 0;
}

long FileIo::ReadAll(int fd, void* data, size_t size, int64_t offset, size_t* got) {
  uint8_t* bytes = static_cast<uint8_t*>(data);
  size_t done = 0;
  long result = 0;
  while (done < size) {
    ssize_t read = pread(fd, bytes + done, size - done, static_cast<off_t>(offset) + static_cast<off_t>(done));
    if (read < 0 && errno == EINTR) continue;
    if (read < 0) {
      result = errno;
      break;
    }
    if (read == 0) {
      result = ENODATA;
      break;
    }
    done += static_cast<size_t>(read);
  }
  if (got) *got = done;
  return result;
}

}  // namespace Util
}  // namespace KTN
