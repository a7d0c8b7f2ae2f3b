// Whole reads and writes of a descriptor: the one loop each that goes on after a short or interrupted call.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace KTN {
namespace Util {

// No state; any thread. Neither writes a failure line: the caller says what it was reading
// or writing, and why that matters.
class FileIo {
 public:
  // Writes all size bytes of data at the descriptor's position, or at offset when it is 0
  // or more (the position then stays). 0, or the errno of the write that failed (EIO for
  // one that took nothing).
  static long WriteAll(int fd, const void* data, size_t size, int64_t offset = -1);
  // Reads size bytes from offset into data: 0, 61 (ENODATA) when the file ends first (got,
  // when given, says how many bytes were read), or the errno of the read that failed.
  static long ReadAll(int fd, void* data, size_t size, int64_t offset, size_t* got = nullptr);
};

}  // namespace Util
}  // namespace KTN
