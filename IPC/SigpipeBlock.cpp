// Keeps writes into a dead peer's pipe from killing this process.
#include "IPC/SigpipeBlock.h"

#include <errno.h>
#include <pthread.h>
#include <time.h>

namespace KTN {

namespace {

sigset_t PipeSignalSet() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  return set;
}

bool SigpipePending() {
  sigset_t pending;
  sigemptyset(&pending);
  return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}

}  // namespace

SigpipeBlock::SigpipeBlock() {
  mWasPending = SigpipePending();
  sigset_t pipeSet = PipeSignalSet();
  pthread_sigmask(SIG_BLOCK, &pipeSet, &mPreviousMask);
}

SigpipeBlock::~SigpipeBlock() {
  int savedErrno = errno;  // the caller may still want the failed write's errno
  if (!mWasPending && SigpipePending()) {
    sigset_t pipeSet = PipeSignalSet();
    const timespec noWait = {0, 0};
    while (sigtimedwait(&pipeSet, nullptr, &noWait) < 0 && errno == EINTR) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &mPreviousMask, nullptr);
  errno = savedErrno;
}

}  // namespace KTN
