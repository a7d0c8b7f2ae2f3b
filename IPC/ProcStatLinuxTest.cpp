// Tests of reading a task's state and CPU time from /proc.
#include <gtest/gtest.h>

#include <unistd.h>

#include <string>

#include "IPC/ProcStatLinux.h"

namespace KTN {
namespace {

struct StatCase {
  const char* line;
  bool parsed;
  char state;
  long long cpuTicks;  // user + system
};

const StatCase kStatCases[] = {
    {"4242 (QTRecordServer) S 1 4242 4242 0 -1 4194560 900 0 0 0 120 35 0 0 20 0 4 0 1", true, 'S', 155},
    {"4242 (QTRecordServer) D 1 4242 4242 0 -1 4194560 900 0 0 0 7 3 0 0 20 0 4 0 1", true, 'D', 10},
    {"17 (a (odd) name) R 1 17 17 0 -1 0 0 0 0 0 1 2 0 0 20 0 1 0 1", true, 'R', 3},  // the last ')' counts
    {"99 (stopped) T 1 99 99 0 -1 0 0 0 0 0 0 0 0 0 20 0 1 0 1", true, 'T', 0},
    {"4242 (QTRecordServer S 1 4242", false, 0, 0},                                   // no ')'
    {"4242 (QTRecordServer) S 1 4242 4242", false, 0, 0},                             // cut short
    {"", false, 0, 0},
};

TEST(ProcStatTest, ReadsStateAndCpuTimeOfEveryLine) {
  for (const StatCase& c : kStatCases) {
    SCOPED_TRACE(c.line);
    char state = 0;
    long long ticks = -1;
    ASSERT_EQ(c.parsed, ParseProcStatLine(c.line, state, ticks));
    if (!c.parsed) continue;
    EXPECT_EQ(c.state, state);
    EXPECT_EQ(c.cpuTicks, ticks);
  }
}

TEST(ProcStatTest, ReadsThisProcessAndNotAGoneOne) {
  char state = 0;
  long long ticks = -1;
  std::string self = "/proc/" + std::to_string(getpid()) + "/stat";
  ASSERT_TRUE(ReadProcStat(self.c_str(), state, ticks));
  EXPECT_EQ('R', state) << "this thread is running while it reads";
  EXPECT_GE(ticks, 0);
  EXPECT_FALSE(ReadProcStat("/proc/0/stat", state, ticks));
}

}  // namespace
}  // namespace KTN
