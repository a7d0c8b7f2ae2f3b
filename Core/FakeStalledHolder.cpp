// Test support: a child process that holds a segment name until it is killed outright.
#include "Core/FakeStalledHolder.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "Core/SegmentLock.h"

namespace KTN {
namespace Core {

FakeStalledHolder::FakeStalledHolder(const std::string& key, Use use, uid_t user) {
  int ready[2];
  if (pipe(ready) != 0) return;
  pid_t child = fork();
  if (child == 0) {
    close(ready[0]);
    prctl(PR_SET_NAME, "stalled-holder");
    bool ok = true;
    if (user != static_cast<uid_t>(-1)) {
      // /proc shows a process whose user changed as root's unless it says otherwise.
      ok = setgid(user) == 0 && setuid(user) == 0 && prctl(PR_SET_DUMPABLE, 1) == 0;
    }
    SegmentLock lock(key.c_str());
    ok = ok && lock.Acquire(std::chrono::steady_clock::now() + std::chrono::seconds(10)) == 0;
    if (use == Use::kUseAndLetGo) lock.Release();
    char answer = ok ? 'y' : 'n';
    if (write(ready[1], &answer, 1) != 1) _exit(1);
    for (;;) pause();
  }
  close(ready[1]);
  char answer = 0;
  ssize_t got = child > 0 ? read(ready[0], &answer, 1) : 0;
  close(ready[0]);
  mPid = child;
  if (got != 1 || answer != 'y') Kill();
}

FakeStalledHolder::~FakeStalledHolder() {
  Kill();
}

bool FakeStalledHolder::Alive() {
  if (mPid <= 0) return false;
  if (waitpid(mPid, nullptr, WNOHANG) == 0) return true;
  mPid = -1;
  return false;
}

void FakeStalledHolder::Kill() {
  if (mPid <= 0) return;
  kill(mPid, SIGKILL);
  waitpid(mPid, nullptr, 0);
  mPid = -1;
}

}  // namespace Core
}  // namespace KTN
