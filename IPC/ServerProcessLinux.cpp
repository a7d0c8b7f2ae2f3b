// Launching the recording server on Linux: posix_spawn with glibc's chdir and closefrom actions.
#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "IPC/ServerProcess.h"
#include "Util/ProcStat.h"

extern char** environ;

namespace KTN {

namespace {

// Owns the spawn attributes and file actions for one launch.
struct SpawnSetup {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  SpawnSetup() {
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
  }
  ~SpawnSetup() {
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
  }
};

}  // namespace

long ServerProcess::Launch(const char* path, const char* directory, int standardInput, int standardOutput,
                           const char** failedCall) {
  SpawnSetup setup;
  long rc = posix_spawn_file_actions_adddup2(&setup.actions, standardInput, STDIN_FILENO);
  if (!rc) rc = posix_spawn_file_actions_adddup2(&setup.actions, standardOutput, STDOUT_FILENO);
  // Nothing of the host's reaches the server but the two pipes and standard error.
  if (!rc) rc = posix_spawn_file_actions_addclosefrom_np(&setup.actions, STDERR_FILENO + 1);
  if (!rc) rc = posix_spawn_file_actions_addchdir_np(&setup.actions, directory);
  // The host may block or catch signals; the server starts with a clean slate.
  sigset_t noSignals, allSignals;
  sigemptyset(&noSignals);
  sigfillset(&allSignals);
  if (!rc) rc = posix_spawnattr_setsigmask(&setup.attributes, &noSignals);
  if (!rc) rc = posix_spawnattr_setsigdefault(&setup.attributes, &allSignals);
  if (!rc) rc = posix_spawnattr_setflags(&setup.attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  if (rc) {
    if (failedCall) *failedCall = "posix_spawn set-up";
    return rc;
  }
  char* const arguments[] = {const_cast<char*>(path), nullptr};
  pid_t pid = 0;
  rc = posix_spawn(&pid, path, &setup.actions, &setup.attributes, arguments, environ);
  if (rc) {
    if (failedCall) *failedCall = "posix_spawn";
    return rc;
  }
  mPid = pid;
  return 0;
}

long ServerProcess::WaitUntilExit() {
  if (mPid <= 0 || mWaited) return 0;
  int status = 0;
  pid_t waited;
  while ((waited = waitpid(mPid, &status, 0)) < 0 && errno == EINTR) {
  }
  long result = 0;
  if (waited < 0) {
    result = errno;
  } else {
    mExitStatus = status;
  }
  mWaited = true;
  return result;
}

long ServerProcess::WaitUntilExit(int timeoutMillis, bool& ended) {
  ended = true;
  if (mPid <= 0 || mWaited) return 0;
  for (int waitedMillis = 0;; waitedMillis += 5) {
    int status = 0;
    pid_t waited = waitpid(mPid, &status, WNOHANG);
    if (waited == mPid) {
      mExitStatus = status;
      mWaited = true;
      return 0;
    }
    if (waited < 0 && errno != EINTR) {
      mWaited = true;
      return errno;
    }
    if (waitedMillis >= timeoutMillis) {
      ended = false;
      return 0;
    }
    usleep(5000);
  }
}

long long ServerProcess::CpuTicks() const {
  if (mPid <= 0 || mWaited) return -1;
  char name[40];
  snprintf(name, sizeof name, "/proc/%d/stat", static_cast<int>(mPid));
  Util::ProcStat stat;
  if (!Util::ProcStat::Read(name, stat)) return -1;
  if (stat.state == 'T' || stat.state == 't' || stat.state == 'Z' || stat.state == 'X') return -1;
  return stat.cpuTicks;
}

bool ServerProcess::WaitingForDisk() const {
  if (mPid <= 0 || mWaited) return false;
  char folder[40];
  snprintf(folder, sizeof folder, "/proc/%d/task", static_cast<int>(mPid));
  DIR* tasks = opendir(folder);
  if (!tasks) return false;
  bool waiting = false;
  while (struct dirent* task = readdir(tasks)) {
    if (task->d_name[0] == '.') continue;
    std::string path = std::string(folder) + "/" + task->d_name + "/stat";
    Util::ProcStat stat;
    if (Util::ProcStat::Read(path.c_str(), stat) && stat.state == 'D') {
      waiting = true;
      break;
    }
  }
  closedir(tasks);
  return waiting;
}

long ServerProcess::Kill() {
  if (mPid > 0 && !mWaited && kill(mPid, SIGKILL) != 0) return errno;
  return 0;
}

}  // namespace KTN
