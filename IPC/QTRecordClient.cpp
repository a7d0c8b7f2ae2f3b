// The plug-in's handle on one running recording server.
#include "IPC/QTRecordClient.h"

#include <errno.h>
#include <libgen.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>

#include "IPC/SigpipeBlock.h"
#include "Util/Log.h"

namespace KTN {

namespace {

// Closes streams opened by an Init that failed before the endpoint took them over:
// the read stream first, then the write stream.
void CloseStreams(FILE* readStream, FILE* writeStream) {
  if (readStream && fclose(readStream) != 0) KTN_LOG("fclose(readStream) returned %ld", static_cast<long>(errno));
  if (writeStream && fclose(writeStream) != 0) KTN_LOG("fclose(writeStream) returned %ld", static_cast<long>(errno));
}

}  // namespace

QTRecordClient::~QTRecordClient() {
  // The server's input ends first: a server whose owner went without Exit sees the end,
  // finishes the open movie and leaves, so the wait below ends.
  if (mWriteStream) {
    // Closing flushes what a failed write left buffered, into a server that may be gone.
    SigpipeBlock noSigpipe;
    if (fclose(mWriteStream) != 0) KTN_LOG("fclose(mWriteStream) returned %ld", static_cast<long>(errno));
  }
  mWriteStream = nullptr;
  mCommandPipe.CloseReadEnd();
  mCommandPipe.CloseWriteEnd();
  mTask.WaitUntilExit();
  if (mReadStream && fclose(mReadStream) != 0) KTN_LOG("fclose(mReadStream) returned %ld", static_cast<long>(errno));
  mReadStream = nullptr;
  mResponsePipe.CloseReadEnd();
  mResponsePipe.CloseWriteEnd();
}

long QTRecordClient::Init(const char* path) {
  if (mLock.Init() != 0) {
    KTN_LOG("Failed to create the command lock");
    return ENOMEM;
  }
  if (long rc = mCommandPipe.Open()) {
    KTN_LOG("Failed to create the command pipe");
    return rc;
  }
  errno = 0;
  FILE* writeStream = fdopen(mCommandPipe.WriteEnd(), "w");
  if (!writeStream && errno != 0) {
    long error = errno;
    KTN_LOG("fdopen of writeStream failed with %ld (%s)", error, strerror(errno));
    return error;
  }
  if (writeStream) mCommandPipe.TakeWriteEnd();
  if (long rc = mResponsePipe.Open()) {
    KTN_LOG("Failed to create the response pipe");
    CloseStreams(nullptr, writeStream);
    return rc;
  }
  errno = 0;
  FILE* readStream = fdopen(mResponsePipe.ReadEnd(), "r");
  if (!readStream && errno != 0) {
    long error = errno;
    KTN_LOG("fdopen of readStream failed with %ld (%s)", error, strerror(errno));
    CloseStreams(nullptr, writeStream);
    return error;
  }
  if (readStream) {
    mResponsePipe.TakeReadEnd();
    // Unbuffered, so that a descriptor with nothing to read means no answer has come:
    // AwaitAnswer polls the descriptor, never a stream buffer holding an answer already.
    setvbuf(readStream, nullptr, _IONBF, 0);
  }
  if (long rc = SimpleEndpointIPC::Init(readStream, writeStream)) {
    KTN_LOG("RecordClient::Init returned %ld", rc);
    CloseStreams(readStream, writeStream);
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

long QTRecordClient::AwaitAnswer(const char* command) {
  if (!mReadStream) return 0;
  constexpr int kSliceMs = 500;
  int fd = fileno(mReadStream);
  long long ticks = mTask.CpuTicks();
  int idleMs = 0;
  for (;;) {
    struct pollfd ready = {fd, POLLIN, 0};
    int rc = poll(&ready, 1, kSliceMs);
    if (rc > 0) return 0;  // an answer, or the end of a stream whose writer has gone
    if (rc < 0 && errno == EINTR) continue;
    if (rc < 0) {
      long error = errno;
      KTN_LOG("poll(%d) failed with errno %ld (%s)", fd, error, strerror(errno));
      return error;
    }
    // Still no answer: a long Stop (finishing a big movie) keeps using CPU time or waits
    // for the disk.
    long long now = mTask.CpuTicks();
    if ((now >= 0 && now != ticks) || mTask.WaitingForDisk()) {
      ticks = now;
      idleMs = 0;
      continue;
    }
    idleMs += kSliceMs;
    if (idleMs >= kIdleLimitSeconds * 1000) {
      KTN_LOG("The recording server (process %d) has not answered %s in %d s and is doing nothing: stopped",
              static_cast<int>(mTask.Pid()), command, kIdleLimitSeconds);
      mTask.Kill();
      return ETIMEDOUT;
    }
  }
}

void QTRecordClient::Lock() {
  if (mLock.IsInitialised()) mLock.Lock();
}

void QTRecordClient::Unlock() {
  if (mLock.IsInitialised()) mLock.Unlock();
}

}  // namespace KTN
