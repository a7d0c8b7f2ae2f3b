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

namespace {

// Closes streams opened by an Init that failed before the endpoint took them over: the
// read stream first, then the write stream. Failure lines carry the name of the operation
// the caller is in.
void CloseStreams(const char* caller, FILE* readStream, FILE* writeStream) {
  if (readStream && fclose(readStream) != 0) {
    KTN_LOG_AS(caller, "fclose(readStream) returned %ld", static_cast<long>(errno));
  }
  if (writeStream && fclose(writeStream) != 0) {
    KTN_LOG_AS(caller, "fclose(writeStream) returned %ld", static_cast<long>(errno));
  }
}

}  // namespace

QTRecordClient::~QTRecordClient() {
  // The server ends once it has acknowledged Exit, which its owner sends before letting the
  // client go: wait for it first, with both streams still open.
  if (!mTask.WaitUntilExit(kExitWaitMillis)) {
    // Still running: nobody told it to exit, or it is finishing a movie. Tell it, and end
    // its input, so that it finishes what it holds and leaves.
    if (mWriteStream) {
      SigpipeBlock noSigpipe;  // into a server that may be gone
      fprintf(mWriteStream, "%s\n", cmdExit);
    }
    if (long rc = CloseWriteSide()) KTN_LOG("fclose(mWriteStream) returned %ld", rc);
    WaitWhileWorking();
  }
  if (mReadStream && fclose(mReadStream) != 0) KTN_LOG("fclose(mReadStream) returned %ld", static_cast<long>(errno));
  mReadStream = nullptr;
  mResponsePipe.CloseReadEnd();
  mResponsePipe.CloseWriteEnd();
  if (long rc = CloseWriteSide()) KTN_LOG("fclose(mWriteStream) returned %ld", rc);
}

long QTRecordClient::CloseWriteSide() {
  long result = 0;
  if (mWriteStream) {
    // Closing flushes what is buffered (Exit, or what a failed write left), into a server
    // that may have gone.
    SigpipeBlock noSigpipe;
    if (fclose(mWriteStream) != 0) result = errno;
    mWriteStream = nullptr;
  }
  mCommandPipe.CloseReadEnd();
  mCommandPipe.CloseWriteEnd();
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

void QTRecordClient::WaitWhileWorking() {
  long long ticks = mTask.CpuTicks();
  std::chrono::steady_clock::time_point idleSince = std::chrono::steady_clock::now();
  while (!mTask.WaitUntilExit(500)) {
    if (IdleTooLong(ticks, idleSince)) {
      KTN_LOG("The recording server (process %d) has not ended in %d s and is doing nothing: stopped",
              static_cast<int>(mTask.Pid()), kIdleLimitSeconds);
      mTask.Kill();
      mTask.WaitUntilExit();
      return;
    }
  }
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
  if (mResponsePipe.Open() != 0) {
    KTN_LOG("Failed to allocate a response NSPipe");
    CloseStreams(__func__, nullptr, writeStream);
    return ENOMEM;
  }
  errno = 0;
  FILE* readStream = fdopen(mResponsePipe.ReadEnd(), "r");
  if (!readStream && errno != 0) {
    long error = errno;
    KTN_LOG("fdopen of readStream failed with %ld (%s)", error, strerror(errno));
    CloseStreams(__func__, nullptr, writeStream);
    return error;
  }
  // Buffered: an answer is read with one read(2). AwaitAnswer looks into the buffer before
  // it polls the descriptor.
  if (readStream) mResponsePipe.TakeReadEnd();
  if (long rc = SimpleEndpointIPC::Init(readStream, writeStream)) {
    KTN_LOG("RecordClient::Init returned %ld", rc);
    CloseStreams(__func__, readStream, writeStream);
    return rc;
  }
  // From here the endpoint owns the streams; the destructor closes them.
  char* copy = strdup(path);
  if (!copy) {
    KTN_LOG("strdup failed");
    return ENOMEM;
  }
  long result = 0;
  errno = 0;
  const char* directory = dirname(copy);
  if (!directory && errno != 0) {
    result = errno;
    KTN_LOG("dirname returned %ld (%s)", result, strerror(errno));
  } else {
    result = mTask.Launch(path, directory, mCommandPipe.ReadEnd(), mResponsePipe.WriteEnd());
  }
  free(copy);
  // The child holds its own copies of these ends. Closing ours means a server that dies,
  // or never started, reads as the end of the stream instead of a wait for ever.
  mCommandPipe.CloseReadEnd();
  mResponsePipe.CloseWriteEnd();
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
      mTask.Kill();
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
