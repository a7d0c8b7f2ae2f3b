// Anonymous pipes on Linux (pipe2 with O_CLOEXEC).
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "IPC/Pipe.h"
#include "Util/Log.h"

namespace KTN {

namespace {

void CloseDescriptor(int& fd) {
  if (fd < 0) return;
  if (close(fd) != 0) KTN_LOG("close(%d) failed with errno %ld (%s)", fd, static_cast<long>(errno), strerror(errno));
  fd = -1;
}

int Take(int& fd) {
  int taken = fd;
  fd = -1;
  return taken;
}

}  // namespace

Pipe::~Pipe() {
  CloseDescriptor(mReadEnd);
  CloseDescriptor(mWriteEnd);
}

long Pipe::Open() {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) {
    long error = errno;
    KTN_LOG("pipe2 failed with errno %ld (%s)", error, strerror(errno));
    return error;
  }
  mReadEnd = fds[0];
  mWriteEnd = fds[1];
  return 0;
}

int Pipe::TakeReadEnd() { return Take(mReadEnd); }
int Pipe::TakeWriteEnd() { return Take(mWriteEnd); }
void Pipe::CloseReadEnd() { CloseDescriptor(mReadEnd); }
void Pipe::CloseWriteEnd() { CloseDescriptor(mWriteEnd); }

}  // namespace KTN
