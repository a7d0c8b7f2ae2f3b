// Whole reads, writes and copies of a descriptor, through short and interrupted calls.
#include "Util/FileIo.h"

#include <sys/sendfile.h>
#include <unistd.h>

namespace KTN {
namespace Util {

namespace {

// Parts given to one writev: a short write of many parts goes on with the next call.
constexpr int kPartsPerCall = 16;

off_t At(int64_t offset, size_t done) {
  return static_cast<off_t>(offset) + static_cast<off_t>(done);
}

}  // namespace

long FileIo::WriteAll(int fd, const void* data, size_t size, int64_t offset) {
  struct iovec whole = {const_cast<void*>(data), size};
  return WriteAllParts(fd, &whole, 1, offset);
}

long FileIo::WriteAllParts(int fd, const struct iovec* parts, int count, int64_t offset) {
  size_t size = 0;
  for (int i = 0; i < count; ++i) size += parts[i].iov_len;
  return Transfer(size, Direction::kWrite, [&](size_t done) -> ssize_t {
    // What is left: the parts from the one that done ends in, the first of them cut.
    struct iovec pending[kPartsPerCall];
    int used = 0;
    size_t skip = done;
    for (int i = 0; i < count && used < kPartsPerCall; ++i) {
      if (skip >= parts[i].iov_len) {
        skip -= parts[i].iov_len;
        continue;
      }
      pending[used].iov_base = static_cast<uint8_t*>(parts[i].iov_base) + skip;
      pending[used].iov_len = parts[i].iov_len - skip;
      skip = 0;
      ++used;
    }
    return offset < 0 ? writev(fd, pending, used) : pwritev(fd, pending, used, At(offset, done));
  });
}

long FileIo::ReadAll(int fd, void* data, size_t size, int64_t offset, size_t* got) {
  uint8_t* bytes = static_cast<uint8_t*>(data);
  return Transfer(
      size, Direction::kRead,
      [&](size_t done) -> ssize_t {
        return offset < 0 ? read(fd, bytes + done, size - done) : pread(fd, bytes + done, size - done, At(offset, done));
      },
      got);
}

long FileIo::CopyAll(int to, int from, int64_t fromOffset, size_t size, size_t* copied) {
  return Transfer(
      size, Direction::kRead,
      [&](size_t done) -> ssize_t {
        off_t at = At(fromOffset, done);
        return sendfile(to, from, &at, size - done);
      },
      copied);
}

}  // namespace Util
}  // namespace KTN
