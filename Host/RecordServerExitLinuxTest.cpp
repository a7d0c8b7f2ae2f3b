// Tests of reading how the recording server ended: killed, exited, still running, reaped.
#include <gtest/gtest.h>

#include <errno.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Host/RecordServerExit.h"

namespace KTN {
namespace {

// A child of this process named as the recording server, which waits to be killed or, when
// exitStatus >= 0, exits with it as soon as it has its name.
pid_t StartServerNamedChild(int exitStatus) {
  int ready[2];
  if (pipe(ready) != 0) return -1;
  pid_t pid = fork();
  if (pid == 0) {
    prctl(PR_SET_NAME, "QTRecordServer");
    char named = 1;
    if (write(ready[1], &named, 1) != 1) _exit(126);
    if (exitStatus >= 0) _exit(exitStatus);
    for (;;) pause();
  }
  close(ready[1]);
  char named = 0;
  if (pid < 0 || read(ready[0], &named, 1) != 1) pid = -1;
  close(ready[0]);
  return pid;
}

TEST(RecordServerExitTest, AKilledServerIsFoundWithItsSignalUntilItIsReaped) {
  pid_t server = StartServerNamedChild(-1);
  ASSERT_GT(server, 0);
  int status = 0;
  EXPECT_EQ(ENOENT, RecordServerExit::Find(status, 0)) << "a running server has not ended";
  ASSERT_EQ(0, kill(server, SIGKILL));
  // However long the machine takes to end it: a minute at most.
  ASSERT_EQ(0, RecordServerExit::Find(status, 60000));
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(SIGKILL, WTERMSIG(status));
  int reaped = 0;
  ASSERT_EQ(server, waitpid(server, &reaped, 0));
  EXPECT_EQ(reaped, status) << "the wait status as waitpid gives it";
  EXPECT_EQ(ENOENT, RecordServerExit::Find(status, 0)) << "a reaped server is gone";
}

TEST(RecordServerExitTest, AServerThatExitedIsFoundWithItsStatus) {
  pid_t server = StartServerNamedChild(3);
  ASSERT_GT(server, 0);
  int status = 0;
  ASSERT_EQ(0, RecordServerExit::Find(status, 60000));
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(3, WEXITSTATUS(status));
  waitpid(server, nullptr, 0);
}

TEST(RecordServerExitTest, OtherChildrenAreNotTheServer) {
  pid_t other = fork();
  if (other == 0) _exit(0);
  ASSERT_GT(other, 0);
  // Ended, but not the server: not found however long it is waited for.
  int status = 0;
  EXPECT_EQ(ENOENT, RecordServerExit::Find(status, 200));
  waitpid(other, nullptr, 0);
}

}  // namespace
}  // namespace KTN
