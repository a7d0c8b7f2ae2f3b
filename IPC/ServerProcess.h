// A child process running the recording server, with its standard input and output redirected.
#pragma once

#include <sys/types.h>

namespace KTN {

class ServerProcess {
 public:
  ServerProcess() = default;
  // Does not wait: the owner calls WaitUntilExit first.
  ~ServerProcess() = default;

  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  // None of the operations below prints anything: each returns the errno of what failed,
  // and its caller reports it in the name of the operation it is in.

  // Starts the executable at path (no shell, no arguments) in the working directory
  // directory, with standardInput and standardOutput as its descriptors 0 and 1 and this
  // process's standard error as its own. The child inherits no other descriptor, a clear
  // signal mask and default signal actions. 0, or the errno of the failed launch with the
  // name of the call that failed in failedCall when that is not null.
  long Launch(const char* path, const char* directory, int standardInput, int standardOutput,
              const char** failedCall = nullptr);

  // Blocks until the child has ended. Returns at once when nothing was launched or it has
  // been waited for already. 0, or the errno of a failed waitpid (the child then counts as
  // waited for: it cannot be waited for again).
  long WaitUntilExit();
  // The same for at most timeoutMillis; ended tells whether the child has ended (or none was
  // launched, or it could not be waited for).
  long WaitUntilExit(int timeoutMillis, bool& ended);

  // CPU time the child has used so far, in clock ticks, or -1 when it is stopped (by
  // SIGSTOP or a debugger), gone or cannot be examined: a child whose figure does not
  // move is doing nothing.
  long long CpuTicks() const;

  // Whether a thread of the child is waiting for the disk (a sync of a big movie can take
  // longer than any idle limit while using no CPU time): working, not hung.
  bool WaitingForDisk() const;

  // Ends a child that no longer answers (SIGKILL); the owner still waits for it. 0 or the
  // errno of the failed kill.
  long Kill();

  // The child's process ID, or 0 when none was launched.
  pid_t Pid() const { return mPid; }
  // The wait status of the ended child (as waitpid reports it), or -1.
  int ExitStatus() const { return mExitStatus; }

 private:
  pid_t mPid = 0;
  int mExitStatus = -1;
  bool mWaited = false;
};

}  // namespace KTN
