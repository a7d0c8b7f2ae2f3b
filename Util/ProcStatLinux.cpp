// A task's stat line from Linux's /proc, read whole and parsed from the end of its command name.
#include "Util/ProcStat.h"

#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace KTN {
namespace Util {

namespace {

// The numeric fields after the state: field 4 is the first, 52 the last one read.
constexpr int kFirstNumber = 4;
constexpr int kLastNumber = 52;
constexpr int kUserTime = 14;
constexpr int kSystemTime = 15;
constexpr int kExitCode = 52;

}  // namespace

bool ProcStat::Parse(const char* line, ProcStat& stat) {
  const char* close = strrchr(line, ')');
  if (!close) return false;
  // ") S 1 ...": one space, the state letter, a space, then numbers separated by spaces.
  const char* at = close + 1;
  if (at[0] != ' ' || !isalpha(static_cast<unsigned char>(at[1])) || at[2] != ' ') return false;
  const char state = at[1];
  at += 2;
  long long numbers[kLastNumber - kFirstNumber + 1];
  int count = 0;
  while (count < kLastNumber - kFirstNumber + 1) {
    char* end = nullptr;
    long long value = strtoll(at, &end, 10);
    if (end == at) break;
    numbers[count++] = value;
    at = end;
  }
  if (count <= kSystemTime - kFirstNumber) return false;
  stat.state = state;
  stat.cpuTicks = numbers[kUserTime - kFirstNumber] + numbers[kSystemTime - kFirstNumber];
  stat.hasExitCode = count > kExitCode - kFirstNumber;
  stat.exitCode = stat.hasExitCode ? static_cast<int>(numbers[kExitCode - kFirstNumber]) : 0;
  return true;
}

bool ProcStat::Read(const char* path, ProcStat& stat) {
  FILE* file = fopen(path, "re");
  if (!file) return false;
  // Whole, not by line: a command name may hold a line feed. A line is about 52 numbers of
  // at most 20 digits and a name of at most 64 bytes.
  char line[2048];
  size_t length = fread(line, 1, sizeof line - 1, file);
  fclose(file);
  line[length] = '\0';
  return length > 0 && Parse(line, stat);
}

}  // namespace Util
}  // namespace KTN
