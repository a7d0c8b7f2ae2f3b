// Whole reads, writes and copies of a descriptor: the one loop that goes on after a short or interrupted call.
#pragma once

#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>
#include <sys/uio.h>

namespace KTN {
namespace Util {

// No state; any thread; nothing allocated, so a failure report may use it too. None of them
// writes a failure line: the caller says what it was reading or writing, and why that
// matters.
//
// Every operation runs its system calls through Transfer, which reads each call's answer by
// one rule:
// - more than 0: those bytes have moved; a call that moved fewer than asked is followed by
//   one for the rest (a short write to a pipe, a read that a signal cut short);
// - -1 with EINTR: a signal came before anything moved; the call is made again;
// - 0 from a write: the descriptor takes nothing more. That is an error, 5 (EIO): asking
//   again would spin;
// - 0 from a read or a copy: the end of the file. That is 61 (ENODATA), with the bytes
//   moved before it in *done: a caller that wanted fewer than it asked for reads them there;
// - -1 with any other errno: that errno at once, with the bytes moved before it in *done.
//
// Offsets: below 0, at the descriptor's position, which moves on; 0 or more, at that offset
// of the file, and the position stays.
class FileIo {
 public:
  // Writes all size bytes of data.
  static long WriteAll(int fd, const void* data, size_t size, int64_t offset = -1);
  // Writes the parts' bytes one after another, as one write of them joined would: in one
  // system call each time where the descriptor takes them. The parts are not changed; empty
  // parts are passed over.
  static long WriteAllParts(int fd, const struct iovec* parts, int count, int64_t offset = -1);
  // Reads size bytes into data; *got, when given, says how many came (all of them on 0).
  static long ReadAll(int fd, void* data, size_t size, int64_t offset, size_t* got = nullptr);
  // Copies size bytes of from, starting at its offset fromOffset, to `to` at its position,
  // inside the kernel (sendfile). *copied, when given, says how many bytes were copied. 22
  // (EINVAL) or 38 (ENOSYS) with nothing copied: the kernel does not copy between these two
  // (a source it cannot map, a target opened to append), and the caller reads and writes
  // instead.
  static long CopyAll(int to, int from, int64_t fromOffset, size_t size, size_t* copied = nullptr);

  // What a call that moves nothing means: the end of the file for a read, an error for a
  // write.
  enum class Direction { kWrite, kRead };

  // The loop itself. call(done) makes one system call for the bytes from done on (done of
  // size have moved) and returns what that call returned: a count, 0, or -1 with errno set.
  // Returns 0 once size bytes have moved, otherwise as the rule above says; *done, when
  // given, says how many moved.
  template <typename Call>
  static long Transfer(size_t size, Direction direction, Call call, size_t* done = nullptr) {
    size_t moved = 0;
    long result = 0;
    while (moved < size) {
      ssize_t count = call(moved);
      if (count > 0) {
        moved += static_cast<size_t>(count);
        continue;
      }
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) {
        result = errno ? errno : EIO;
      } else {
        result = direction == Direction::kWrite ? EIO : ENODATA;
      }
      break;
    }
    if (done) *done = moved;
    return result;
  }
};

}  // namespace Util
}  // namespace KTN
