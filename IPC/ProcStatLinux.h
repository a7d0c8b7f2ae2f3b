// One line of Linux's /proc/PID/stat (or /proc/PID/task/TID/stat): a task's state and CPU time.
#pragma once

namespace KTN {

// Reads the state letter ('R', 'S', 'D', 'T', 'Z', ...) and the user plus system CPU time
// in clock ticks from line. The command name sits in parentheses and may hold spaces and
// parentheses itself; the fields follow the last ')'. False when line is not such a line.
bool ParseProcStatLine(const char* line, char& state, long long& cpuTicks);

// The same from the file at path; false when it cannot be read (the task has gone).
bool ReadProcStat(const char* path, char& state, long long& cpuTicks);

}  // namespace KTN
