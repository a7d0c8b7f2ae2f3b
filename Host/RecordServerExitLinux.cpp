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

#include "Util/ProcStat.h"

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

}  // namespace

long RecordServerExit::Find(int& waitStatus, int waitMillis) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMillis);
  for (long pid : Children()) {
    std::string folder = "/proc/" + std::to_string(pid);
    if (FirstLine(folder + "/comm") != kServerName) continue;
    for (;;) {
      Util::ProcStat stat;
      if (!Util::ProcStat::Read((folder + "/stat").c_str(), stat)) break;  // reaped meanwhile
      if (stat.state == 'Z' && stat.hasExitCode) {
        waitStatus = stat.exitCode;
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
