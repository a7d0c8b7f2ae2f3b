// Anonymous pipes on Linux (pipe2 with O_CLOEXEC).
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "IPC/Pipe.h"
#include "Util/Log.h"

namespace KTN {

namespace {

// Closes fd when it is open and marks it closed: close(2) releases the descriptor even when
// it reports a failure, so it is never closed twice. 0 or the errno of the failed close.
long CloseDescriptor(int& fd) {
  if (fd < 0) return 0;
  long result = close(fd) != 0 ? errno : 0;
  fd = -1;
  return result;
}

int Take(int& fd) {
  int taken = fd;
  fd = -1;
  return taken;
}

}  // namespace

Pipe::~Pipe() {
  if (long rc = Close()) KTN_LOG("close of a pipe end failed with errno %ld (%s)", rc, strerror(static_cast<int>(rc)));
}

long Pipe::Open() {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return errno;
  mReadEnd = fds[0];
  mWriteEnd = fds[1];
  return 0;
}

int Pipe::TakeReadEnd() { return Take(mReadEnd); }
int Pipe::TakeWriteEnd() { return Take(mWriteEnd); }
long Pipe::CloseReadEnd() { return CloseDescriptor(mReadEnd); }
long Pipe::CloseWriteEnd() { return CloseDescriptor(mWriteEnd); }

long Pipe::Close() {
  long readResult = CloseReadEnd();
  long writeResult = CloseWriteEnd();
  return readResult ? readResult : writeResult;
}

}  // namespace KTN
