// The plug-in's handle on one running recording server.
#include "IPC/QTRecordClient.h"

#include <errno.h>
#include <libgen.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>

#include "IPC/BufferedInput.h"
#include "IPC/RecorderCommands.h"
#include "IPC/SigpipeBlock.h"
#include "Util/Log.h"

namespace KTN {

QTRecordClient::~QTRecordClient() {
  // The server ends once it has acknowledged Exit, which its owner sends before letting the
  // client go: wait for it first, with both streams still open.
  bool ended = true;
  long waitError = mTask.WaitUntilExit(kExitWaitMillis, ended);
  if (!ended) {
    // Still running: nobody told it to exit, or it is finishing a movie. Tell it, and end
    // its input, so that it finishes what it holds and leaves.
    if (mWriteStream) {
      SigpipeBlock noSigpipe;  // into a server that may be gone
      fprintf(mWriteStream, "%s\n", cmdExit);
    }
    const char* failedClose = nullptr;
    if (long rc = CloseWriteSide(failedClose)) KTN_LOG("%s returned %ld", failedClose, rc);
    // It is waited for as long as it uses CPU time or waits for the disk; one that has done
    // neither for kIdleLimitSeconds is hung and is killed.
    long long ticks = mTask.CpuTicks();
    std::chrono::steady_clock::time_point idleSince = std::chrono::steady_clock::now();
    while (!ended) {
      waitError = mTask.WaitUntilExit(500, ended);
      if (!ended && IdleTooLong(ticks, idleSince)) {
        KTN_LOG("The recording server (process %d) has not ended in %d s and is doing nothing: stopped",
                static_cast<int>(mTask.Pid()), kIdleLimitSeconds);
        if (long rc = mTask.Kill()) {
          KTN_LOG("kill(%d, SIGKILL) failed with errno %ld (%s)", static_cast<int>(mTask.Pid()), rc,
                  strerror(static_cast<int>(rc)));
        }
        waitError = mTask.WaitUntilExit();
        ended = true;
      }
    }
  }
  if (waitError) {
    KTN_LOG("waitpid(%d) failed with errno %ld (%s)", static_cast<int>(mTask.Pid()), waitError,
            strerror(static_cast<int>(waitError)));
  }
  if (mReadStream && fclose(mReadStream) != 0) KTN_LOG("fclose(mReadStream) returned %ld", static_cast<long>(errno));
  mReadStream = nullptr;
  if (long rc = mResponsePipe.Close()) {
    KTN_LOG("close of the response pipe failed with errno %ld (%s)", rc, strerror(static_cast<int>(rc)));
  }
  const char* failedClose = nullptr;
  if (long rc = CloseWriteSide(failedClose)) KTN_LOG("%s returned %ld", failedClose, rc);
}

long QTRecordClient::CloseWriteSide(const char*& failedCall) {
  long result = 0;
  if (mWriteStream) {
    // Closing flushes what is buffered (Exit, or what a failed write left), into a server
    // that may have gone.
    SigpipeBlock noSigpipe;
    if (fclose(mWriteStream) != 0) {
      result = errno;
      failedCall = "fclose(mWriteStream)";
    }
    mWriteStream = nullptr;
  }
  if (long rc = mCommandPipe.Close()) {
    if (!result) {
      result = rc;
      failedCall = "close of the command pipe";
    }
  }
  return result;
}

bool QTRecordClient::IdleTooLong(long long& ticks, std::chrono::steady_clock::time_point& idleSince) {
  const long long now = mTask.CpuTicks();
  if ((now >= 0 && now != ticks) || mTask.WaitingForDisk()) {
    ticks = now;
    idleSince = std::chrono::steady_clock::now();
    return false;
  }
  return std::chrono::steady_clock::now() - idleSince >= std::chrono::seconds(kIdleLimitSeconds);
}

long QTRecordClient::Init(const char* path) {
  if (mLock.Init() != 0) {
    KTN_LOG("Failed to allocate an NSLock");
    return ENOMEM;
  }
  if (mCommandPipe.Open() != 0) {
    KTN_LOG("Failed to allocate a command NSPipe");
    return ENOMEM;
  }
  errno = 0;
  FILE* writeStream = fdopen(mCommandPipe.WriteEnd(), "w");
  if (!writeStream && errno != 0) {
    long error = errno;
    KTN_LOG("fdopen of writeStream failed with %ld (%s)", error, strerror(errno));
    return error;
  }
  if (writeStream) mCommandPipe.TakeWriteEnd();
  FILE* readStream = nullptr;
  long result = 0;
  if (mResponsePipe.Open() != 0) {
    KTN_LOG("Failed to allocate a response NSPipe");
    result = ENOMEM;
  } else {
    errno = 0;
    readStream = fdopen(mResponsePipe.ReadEnd(), "r");
    if (!readStream && errno != 0) {
      result = errno;
      KTN_LOG("fdopen of readStream failed with %ld (%s)", result, strerror(errno));
    } else {
      // Buffered: an answer is read with one read(2). AwaitAnswer looks into the buffer
      // before it polls the descriptor.
      if (readStream) mResponsePipe.TakeReadEnd();
      if (long rc = SimpleEndpointIPC::Init(readStream, writeStream)) {
        KTN_LOG("RecordClient::Init returned %ld", rc);
        result = rc;
      }
    }
  }
  if (result) {
    // The endpoint has not taken the streams over: close what was opened, read stream first.
    if (readStream && fclose(readStream) != 0) KTN_LOG("fclose(readStream) returned %ld", static_cast<long>(errno));
    if (writeStream && fclose(writeStream) != 0) KTN_LOG("fclose(writeStream) returned %ld", static_cast<long>(errno));
    return result;
  }
  // From here the endpoint owns the streams; the destructor closes them.
  char* copy = strdup(path);
  if (!copy) {
    KTN_LOG("strdup failed");
    return ENOMEM;
  }
  errno = 0;
  const char* directory = dirname(copy);
  if (!directory && errno != 0) {
    result = errno;
    KTN_LOG("dirname returned %ld (%s)", result, strerror(errno));
  } else {
    const char* failedCall = "posix_spawn";
    result = mTask.Launch(path, directory, mCommandPipe.ReadEnd(), mResponsePipe.WriteEnd(), &failedCall);
    if (result) {
      KTN_LOG("%s failed with errno %ld (%s) for %s", failedCall, result, strerror(static_cast<int>(result)), path);
    }
  }
  free(copy);
  // The child holds its own copies of these ends. Closing ours means a server that dies,
  // or never started, reads as the end of the stream instead of a wait for ever.
  if (long rc = mCommandPipe.CloseReadEnd()) {
    KTN_LOG("close of the command pipe's read end failed with errno %ld (%s)", rc, strerror(static_cast<int>(rc)));
  }
  if (long rc = mResponsePipe.CloseWriteEnd()) {
    KTN_LOG("close of the response pipe's write end failed with errno %ld (%s)", rc, strerror(static_cast<int>(rc)));
  }
  return result;
}

void QTRecordClient::CommandSent() {
  mAnswerLate = false;
}

long QTRecordClient::AwaitAnswer(const char* command, int budgetMillis) {
  if (!mReadStream || HasBufferedInput(mReadStream)) return 0;
  constexpr int kSliceMs = 500;
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(budgetMillis < 0 ? 0 : budgetMillis);
  int fd = fileno(mReadStream);
  for (;;) {
    int wait = kSliceMs;
    if (budgetMillis >= 0) {
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
      wait = left < 0 ? 0 : left < kSliceMs ? static_cast<int>(left) : kSliceMs;
    }
    struct pollfd ready = {fd, POLLIN, 0};
    int rc = poll(&ready, 1, wait);
    if (rc > 0) return 0;  // an answer, or the end of a stream whose writer has gone
    if (rc < 0 && errno == EINTR) continue;
    if (rc < 0) {
      long error = errno;
      KTN_LOG("poll(%d) failed with errno %ld (%s)", fd, error, strerror(errno));
      return error;
    }
    // No answer yet. A long Stop (finishing a big movie) keeps using CPU time or waits for
    // the disk; only a server doing neither is counted idle.
    if (!mAnswerLate) {
      mAnswerLate = true;
      mTicks = mTask.CpuTicks();
      mIdleSince = Clock::now();
    } else if (IdleTooLong(mTicks, mIdleSince)) {
      KTN_LOG("The recording server (process %d) has not answered %s in %d s and is doing nothing: stopped",
              static_cast<int>(mTask.Pid()), command, kIdleLimitSeconds);
      if (long rc = mTask.Kill()) {
        KTN_LOG("kill(%d, SIGKILL) failed with errno %ld (%s)", static_cast<int>(mTask.Pid()), rc,
                strerror(static_cast<int>(rc)));
      }
      return ETIMEDOUT;
    }
    if (budgetMillis >= 0 && Clock::now() >= deadline) return EINPROGRESS;
  }
}

void QTRecordClient::Lock() {
  if (mLock.IsInitialised()) mLock.Lock();
}

void QTRecordClient::Unlock() {
  if (mLock.IsInitialised()) mLock.Unlock();
}

}  // namespace KTN
