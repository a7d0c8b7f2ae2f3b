// Tests that a write into a closed pipe fails quietly inside a SigpipeBlock.
#include <gtest/gtest.h>

#include <errno.h>
#include <signal.h>
#include <unistd.h>

#include "IPC/SigpipeBlock.h"

namespace KTN {
namespace {

TEST(SigpipeBlockTest, WriteIntoClosedPipeFailsWithEpipeAndLeavesNoSignal) {
  int fds[2];
  ASSERT_EQ(0, pipe(fds));
  close(fds[0]);
  sigset_t maskBefore;
  pthread_sigmask(SIG_SETMASK, nullptr, &maskBefore);
  {
    SigpipeBlock block;
    errno = 0;
    EXPECT_EQ(-1, write(fds[1], "x", 1));
    EXPECT_EQ(EPIPE, errno);
  }
  sigset_t maskAfter, pending;
  pthread_sigmask(SIG_SETMASK, nullptr, &maskAfter);
  sigpending(&pending);
  EXPECT_EQ(0, sigismember(&pending, SIGPIPE));
  EXPECT_EQ(sigismember(&maskBefore, SIGPIPE), sigismember(&maskAfter, SIGPIPE));
  close(fds[1]);
}

TEST(SigpipeBlockTest, ASigpipeAlreadyPendingIsLeftForItsOwner) {
  sigset_t pipeSet, previous;
  sigemptyset(&pipeSet);
  sigaddset(&pipeSet, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipeSet, &previous);
  raise(SIGPIPE);  // pending, blocked by the owner
  { SigpipeBlock block; }
  sigset_t pending;
  sigpending(&pending);
  EXPECT_EQ(1, sigismember(&pending, SIGPIPE)) << "not consumed by the guard";
  const timespec noWait = {0, 0};
  EXPECT_EQ(SIGPIPE, sigtimedwait(&pipeSet, nullptr, &noWait));
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

}  // namespace
}  // namespace KTN
