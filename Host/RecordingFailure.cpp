// What a failed service call tells the user: what happened to the recording and what of it is kept.
#include "Host/RecordingFailure.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "Host/PluginSession.h"
#include "Host/RecordServerExit.h"
#include "Movie/MovieSummary.h"

namespace KTN {

namespace {

// How long a server whose pipes have closed is given to end (it takes microseconds; a
// loaded machine may take much longer, and a server alive without its pipes is rare).
constexpr int kEndingMillis = 2000;

// path as one word for a POSIX shell, so that the command can be pasted as it is shown.
std::string ShellQuoted(const std::string& path) {
  std::string quoted = "'";
  for (char c : path) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// How a server that ended did, from its wait status.
std::string HowItEnded(int waitStatus) {
  if (WIFSIGNALED(waitStatus)) {
    int signal = WTERMSIG(waitStatus);
    return "the recording server was killed by signal " + std::to_string(signal) + " (" + strsignal(signal) +
           (WCOREDUMP(waitStatus) ? ", core dumped)" : ")");
  }
  return "the recording server exited with status " + std::to_string(WEXITSTATUS(waitStatus));
}

// What the movie a failed recording left holds, and how to finish it when it was cut off.
std::string WhatIsKept(const std::string& moviePath, const std::string& startTimecode) {
  struct stat info;
  if (stat(moviePath.c_str(), &info) != 0) return "no movie was written";
  MovieSummary summary;
  if (summary.Read(moviePath) != 0) return "the movie cannot be read";
  if (summary.layout == MovieSummary::Layout::kNotAMovie || summary.pictures == 0) return "the movie holds no frame";
  std::string kept = "the movie holds " + std::to_string(summary.pictures) + (summary.pictures == 1 ? " frame" : " frames");
  if (summary.layout == MovieSummary::Layout::kFinished) return kept;
  const std::string timecode = startTimecode.empty() ? std::string() : "--timecode '" + startTimecode + "' ";
  return kept + "; kestrin-capture repair " + timecode + ShellQuoted(moviePath) + " finishes it";
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
  if (ServersFailure()) line += "; " + WhatIsKept(moviePath, startTimecode);
  return line;
}

}  // namespace KTN
