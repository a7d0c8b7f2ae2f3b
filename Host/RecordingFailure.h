// What a failed service call tells the user: what happened to the recording and what of it is kept.
#pragma once

#include <stdint.h>

#include <string>

namespace KTN {

// A recording whose server died, hung or stopped answering leaves a movie of fragments that
// plays to its last whole frame. The line says which of these happened (a server that died:
// by which signal, or with which exit status), how many frames the movie holds and the
// command that gives it its ordinary index.
class RecordingFailure {
 public:
  // Made right after the service call that answered result, before the recording is
  // stopped: stopping reaps the recording server, and with it how the server ended.
  explicit RecordingFailure(int32_t result);

  // The failure in one line, "recording failed: ...". For the server's failures it goes on
  // with what the movie at moviePath holds, read when called: call it once the recording
  // has stopped and the movie no longer changes. startTimecode, the take's first frame's
  // when the host knows it, goes into the repair command so that the movie gets it back.
  std::string Line(const std::string& moviePath, const std::string& startTimecode = std::string()) const;

 private:
  bool ServersFailure() const;

  int32_t mResult;
  bool mServerEnded = false;
  int mWaitStatus = 0;
};

}  // namespace KTN
