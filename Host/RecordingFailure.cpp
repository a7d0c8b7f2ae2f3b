// What a failed service call tells the user: what happened to the recording and what of it is kept.
#include "Host/RecordingFailure.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "Host/KeptMovie.h"
#include "Host/PluginSession.h"
#include "Host/RecordServerExit.h"

namespace KTN {

namespace {

// How long a server whose pipes have closed is given to end (it takes microseconds; a
// loaded machine may take much longer, and a server alive without its pipes is rare).
constexpr int kEndingMillis = 2000;

// How a server that ended did, from its wait status.
std::string HowItEnded(int waitStatus) {
  if (WIFSIGNALED(waitStatus)) {
    int signal = WTERMSIG(waitStatus);
    return "the recording server was killed by signal " + std::to_string(signal) + " (" + strsignal(signal) +
           (WCOREDUMP(waitStatus) ? ", core dumped)" : ")");
  }
  return "the recording server exited with status " + std::to_string(WEXITSTATUS(waitStatus));
}

}  // namespace

RecordingFailure::RecordingFailure(int32_t result) : mResult(result) {
  // The server's end of stream and a broken command pipe both mean it is gone: dead, or
  // alive but no longer reading (then it is not found ended and the line says it stopped
  // answering). A hung server was ended by the plug-in itself, which the result says.
  if (mResult == EIO || mResult == EPIPE) mServerEnded = RecordServerExit::Find(mWaitStatus, kEndingMillis) == 0;
}

bool RecordingFailure::ServersFailure() const {
  return mResult == EIO || mResult == EPIPE || mResult == ETIMEDOUT;
}

std::string RecordingFailure::Line(const std::string& moviePath, const std::string& startTimecode) const {
  std::string line = "recording failed: " + (mServerEnded ? HowItEnded(mWaitStatus) : PluginSession::Describe(mResult));
  // After a full disk the server kept the file to its last whole frame, and there may have
  // been no room for its index or its timecode.
  if (ServersFailure() || mResult == ENOSPC) line += "; " + KeptMovie(moviePath, startTimecode).WhatIsKept(mResult == ENOSPC);
  return line;
}

}  // namespace KTN
