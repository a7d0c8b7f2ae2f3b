// Reading a task's state and CPU time from /proc.
#include "IPC/ProcStatLinux.h"

#include <stdio.h>
#include <string.h>

namespace KTN {

bool ParseProcStatLine(const char* line, char& state, long long& cpuTicks) {
  const char* end = strrchr(line, ')');
  if (!end) return false;
  unsigned long long userTicks = 0, systemTicks = 0;
  if (sscanf(end + 1, " %c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %llu %llu", &state, &userTicks, &systemTicks) != 3) {
    return false;
  }
  cpuTicks = static_cast<long long>(userTicks + systemTicks);
  return true;
}

bool ReadProcStat(const char* path, char& state, long long& cpuTicks) {
  FILE* file = fopen(path, "r");
  if (!file) return false;
  char line[1024];
  bool read = fgets(line, sizeof line, file) != nullptr;
  fclose(file);
  return read && ParseProcStatLine(line, state, cpuTicks);
}

}  // namespace KTN
