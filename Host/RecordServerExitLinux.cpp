// How the recording server ended, read from Linux's /proc: its parent's children and its stat line.
#include "Host/RecordServerExit.h"

#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace KTN {

namespace {

constexpr char kServerName[] = "QTRecordServer";

// The first line of a /proc file, without its line feed; empty when it cannot be read.
std::string FirstLine(const std::string& path) {
  FILE* file = fopen(path.c_str(), "r");
  if (!file) return std::string();
  char line[2048];
  std::string text = fgets(line, sizeof line, file) ? line : "";
  fclose(file);
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

// The children of every thread of this process: any of them may have started the server.
std::vector<long> Children() {
  std::vector<long> pids;
  DIR* tasks = opendir("/proc/self/task");
  if (!tasks) return pids;
  while (struct dirent* task = readdir(tasks)) {
    if (task->d_name[0] == '.') continue;
    std::string list = FirstLine(std::string("/proc/self/task/") + task->d_name + "/children");
    const char* at = list.c_str();
    char* end = nullptr;
    for (long pid = strtol(at, &end, 10); end != at; pid = strtol(at, &end, 10)) {
      pids.push_back(pid);
      at = end;
    }
  }
  closedir(tasks);
  return pids;
}

// From a stat line: the task's state letter and, once it has ended (a zombie), its exit_code,
// the 52nd field, which holds the wait status. The command name sits in parentheses and may
// hold spaces and parentheses itself, so the fields are counted from the last ')', which
// ends field 2. False when the line is not such a line.
bool ParseStat(const std::string& stat, char& state, int& waitStatus) {
  size_t close = stat.rfind(')');
  if (close == std::string::npos) return false;
  std::vector<std::string> fields;
  size_t at = close + 1;
  while (at < stat.size()) {
    size_t start = stat.find_first_not_of(' ', at);
    if (start == std::string::npos) break;
    size_t end = stat.find(' ', start);
    fields.push_back(stat.substr(start, end == std::string::npos ? std::string::npos : end - start));
    at = end == std::string::npos ? stat.size() : end;
  }
  // fields[0] is field 3 (the state); field 52 is fields[49] (kernels since 3.5 have it).
  if (fields.size() < 50 || fields[0].size() != 1) return false;
  state = fields[0][0];
  waitStatus = atoi(fields[49].c_str());
  return true;
}

}  // namespace

long RecordServerExit::Find(int& waitStatus, int waitMillis) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMillis);
  for (long pid : Children()) {
    std::string folder = "/proc/" + std::to_string(pid);
    if (FirstLine(folder + "/comm") != kServerName) continue;
    for (;;) {
      char state = 0;
      int status = 0;
      if (!ParseStat(FirstLine(folder + "/stat"), state, status)) break;  // reaped meanwhile
      if (state == 'Z') {
        waitStatus = status;
        return 0;
      }
      // A server whose pipes have closed is ending: its descriptors close before it
      // becomes a zombie.
      if (std::chrono::steady_clock::now() >= deadline) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  return ENOENT;
}

}  // namespace KTN
