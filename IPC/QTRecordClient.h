// The plug-in's handle on one running recording server: launch, serialised commands, wait.
#pragma once

#include <sys/types.h>

#include <chrono>

#include "Core/Lockable.h"
#include "IPC/Pipe.h"
#include "IPC/QTRecordClientIPC.h"
#include "IPC/ServerProcess.h"

namespace KTN {

// Constructed, Init (the server runs from then on), commands from any thread, Exit,
// destruction. There is no restart: a client whose server died answers 5 to every command.
class QTRecordClient : public QTRecordClientIPC {
 public:
  QTRecordClient() = default;
  // Waits for the server process to end (it does once it has acknowledged Exit), then
  // closes the read stream and the response pipe, then the write stream and the command
  // pipe. A server still running after kExitWaitMillis was not told to exit (or is
  // finishing a movie): it is sent Exit and its input is closed, and it is waited for as
  // long as it works; one that does nothing for kIdleLimitSeconds is killed. So
  // destruction never waits for ever, whatever the server does.
  ~QTRecordClient() override;

  // Launches the server executable at path (UTF-8) in the executable's own folder, with a
  // command pipe as its standard input and a response pipe as its standard output. 0 when
  // the server has been launched, else an errno value with one failure line.
  long Init(const char* path);
  using QTRecordClientIPC::Init;

  // Hold the client's lock for one whole command exchange (not recursive).
  void Lock() override;
  void Unlock() override;

  // Waits for the server's answer to command as long as the server is working on it, or
  // up to budgetMillis when that is not negative (115, EINPROGRESS, when it ran out; the
  // next call goes on waiting). A server that has answered nothing and used no CPU time
  // for kIdleLimitSeconds, or that is stopped, is taken for hung, however many calls the
  // wait took: it is killed (its movie, written as fragments, still plays) and this
  // returns 110 (ETIMEDOUT) with one failure line; later commands read the end of its
  // stream and answer 5. The server's state is read only once an answer is late. Called
  // on the commanding thread, client locked.
  long AwaitAnswer(const char* command, int budgetMillis) override;

  static constexpr int kIdleLimitSeconds = 10;
  static constexpr int kExitWaitMillis = 2000;

  // The server's process ID, or 0 when none was launched.
  pid_t ServerPid() const { return mTask.Pid(); }

 protected:
  // A new command is on its way: its wait starts.
  void CommandSent() override;

 private:
  // Whether the server has done nothing (used no CPU time, not waited for the disk) for
  // kIdleLimitSeconds; ticks and idleSince hold its CPU time and when it was last seen
  // working, updated when it has been.
  bool IdleTooLong(long long& ticks, std::chrono::steady_clock::time_point& idleSince);
  // Closes the command stream (flushing what it holds) and the command pipe's ends. 0, or
  // the errno of the first close that failed with its name in failedCall, for the
  // destructor to report.
  long CloseWriteSide(const char*& failedCall);

  // Serialises command exchanges (write, flush, read acknowledgement) between threads.
  Core::Lockable mLock;
  ServerProcess mTask;
  Pipe mCommandPipe;   // write end: mWriteStream; read end: the server's standard input
  Pipe mResponsePipe;  // read end: mReadStream; write end: the server's standard output

  // The wait for the current command's answer, which may span several AwaitAnswer calls.
  bool mAnswerLate = false;  // a poll has timed out: the server's CPU time is being watched
  long long mTicks = -1;     // its CPU time when last looked at
  std::chrono::steady_clock::time_point mIdleSince;  // when it was last seen working
};

}  // namespace KTN
