// Tests of reading a task's state, CPU time and wait status from its /proc stat line.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "Util/ProcStat.h"

namespace KTN {
namespace Util {
namespace {

// Fields 4 to 52 after the state, with user time 120, system time 35 and exit code 9.
const char kFields[] =
    "1 4242 4242 0 -1 4194560 900 0 0 0 120 35 0 0 20 0 4 0 1 2 3 -1 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 "
    "22 23 24 25 26 27 28 29 30 9";

struct StatCase {
  std::string name;  // the command name, as the kernel writes it between parentheses
  char state;
};

TEST(ProcStatTest, ReadsStateCpuTimeAndExitCodeOfALine) {
  ProcStat stat;
  ASSERT_TRUE(ProcStat::Parse((std::string("4242 (QTRecordServer) Z ") + kFields).c_str(), stat));
  EXPECT_EQ('Z', stat.state);
  EXPECT_EQ(155, stat.cpuTicks);
  EXPECT_TRUE(stat.hasExitCode);
  EXPECT_EQ(9, stat.exitCode);
}

TEST(ProcStatTest, ALineOfAnOlderKernelHasNoExitCode) {
  ProcStat stat;
  ASSERT_TRUE(ProcStat::Parse("17 (cut) R 1 17 17 0 -1 0 0 0 0 0 1 2 0 0 20 0 1 0 1", stat));
  EXPECT_EQ('R', stat.state);
  EXPECT_EQ(3, stat.cpuTicks);
  EXPECT_FALSE(stat.hasExitCode);
}

TEST(ProcStatTest, HostileCommandNamesDoNotMoveTheFields) {
  // Each name would shift the fields, or end the name early, for a parser that took the
  // first ')' or split the line at spaces.
  const StatCase kCases[] = {
      {"a name", 'S'},  {"(x)", 'D'},     {"a) b", 'T'},        {") Z 1 2 3 4 5 (", 'S'},
      {"x) R 7 7 7", 'S'}, {"))", 'R'},   {"a\n) Z", 'S'},      {"", 'S'},
  };
  for (const StatCase& c : kCases) {
    SCOPED_TRACE(c.name);
    std::string line = "99 (" + c.name + ") " + std::string(1, c.state) + " " + kFields;
    ProcStat stat;
    ASSERT_TRUE(ProcStat::Parse(line.c_str(), stat));
    EXPECT_EQ(c.state, stat.state);
    EXPECT_EQ(155, stat.cpuTicks);
    EXPECT_EQ(9, stat.exitCode);
  }
}

TEST(ProcStatTest, WhatIsNotAStatLineIsRefusedAndChangesNothing) {
  for (const char* line : {"4242 (QTRecordServer S 1 4242",         // no ')'
                           "4242 (QTRecordServer) S 1 4242 4242",   // cut before the CPU time
                           "4242 (QTRecordServer)",                  // nothing after the name
                           "4242 (QTRecordServer)  S 1 2 3 4 5 6 7 8 9 10 11 12",  // two spaces
                           "4242 (QTRecordServer) 5 1 2 3 4 5 6 7 8 9 10 11 12",   // no state letter
                           ""}) {
    SCOPED_TRACE(line);
    ProcStat stat;
    stat.state = '?';
    stat.cpuTicks = -7;
    EXPECT_FALSE(ProcStat::Parse(line, stat));
    EXPECT_EQ('?', stat.state);
    EXPECT_EQ(-7, stat.cpuTicks);
  }
}

// A child that names itself name (the kernel keeps the first 15 bytes), says so, then
// waits to be killed.
pid_t StartNamedChild(const char* name) {
  int ready[2];
  if (pipe(ready) != 0) return -1;
  pid_t pid = fork();
  if (pid == 0) {
    prctl(PR_SET_NAME, name);
    char named = 1;
    if (write(ready[1], &named, 1) != 1) _exit(126);
    for (;;) pause();
  }
  close(ready[1]);
  char named = 0;
  if (pid > 0 && read(ready[0], &named, 1) != 1) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    pid = -1;
  }
  close(ready[0]);
  return pid;
}

TEST(ProcStatTest, AProcessNamedToMisleadIsReadAsItIs) {
  // Each name, as the kernel writes it, imitates the end of the name and an ended task.
  for (const char* name : {") Z 1 2 3 4 5 (", "a\n) Z 0 0 0 0", "x) (y) Z"}) {
    SCOPED_TRACE(name);
    pid_t child = StartNamedChild(name);
    ASSERT_GT(child, 0);
    std::string path = "/proc/" + std::to_string(child) + "/stat";
    // Running until it reaches pause(), then sleeping there.
    ProcStat stat;
    bool read = false;
    for (int tries = 0; tries < 6000; ++tries) {  // a minute at most
      read = ProcStat::Read(path.c_str(), stat);
      if (!read || stat.state != 'R') break;
      usleep(10000);
    }
    kill(child, SIGKILL);
    // Killed, not yet reaped: now it has ended, with its wait status in field 52.
    ProcStat ended;
    bool zombie = false;
    for (int tries = 0; tries < 6000 && !zombie; ++tries) {  // a minute at most
      zombie = ProcStat::Read(path.c_str(), ended) && ended.state == 'Z';
      if (!zombie) usleep(10000);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(read);
    EXPECT_EQ('S', stat.state) << "waiting in pause()";
    EXPECT_GE(stat.cpuTicks, 0);
    ASSERT_TRUE(zombie);
    ASSERT_TRUE(ended.hasExitCode);
    EXPECT_EQ(status, ended.exitCode);
    EXPECT_TRUE(WIFSIGNALED(ended.exitCode));
  }
}

TEST(ProcStatTest, ReadsThisProcessAndNotAGoneOne) {
  ProcStat stat;
  std::string self = "/proc/" + std::to_string(getpid()) + "/stat";
  ASSERT_TRUE(ProcStat::Read(self.c_str(), stat));
  EXPECT_EQ('R', stat.state) << "this thread is running while it reads";
  EXPECT_GE(stat.cpuTicks, 0);
  EXPECT_FALSE(ProcStat::Read("/proc/0/stat", stat));
}

}  // namespace
}  // namespace Util
}  // namespace KTN
