// One line of Linux's /proc/PID/stat (or /proc/PID/task/TID/stat): a task's state, CPU time and wait status.
#pragma once

namespace KTN {
namespace Util {

// The fields of a task's stat line that this system reads. A value; no state beyond it, so
// any thread may parse and read.
struct ProcStat {
  char state = 0;          // field 3: 'R', 'S', 'D', 'T', 'Z', ...
  long long cpuTicks = 0;  // fields 14 and 15: user plus system CPU time, in clock ticks
  // Field 52, which kernels since 3.5 write (hasExitCode says whether this one did): once
  // the task has ended and is not yet reaped (state 'Z'), its wait status as waitpid gives
  // it.
  bool hasExitCode = false;
  int exitCode = 0;

  // Reads line into stat. The command name sits in parentheses and may hold anything but a
  // NUL: spaces, parentheses, ") " and line feeds included. The fields are counted from the
  // last ')', which ends it, since no field after it can hold one. False, with stat
  // untouched, when line is not such a line (no ')', or cut before field 15).
  static bool Parse(const char* line, ProcStat& stat);

  // The same from the file at path, read whole; false when it cannot be read (the task has
  // gone) or is not such a line.
  static bool Read(const char* path, ProcStat& stat);
};

}  // namespace Util
}  // namespace KTN
