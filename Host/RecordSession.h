// One recording through the plug-in, from open to close, as the command line runs it.
#pragma once

#include <stdint.h>

#include <atomic>
#include <string>

#include "Host/PluginSession.h"
#include "Host/ProgressDisplay.h"

namespace KTN {

struct RecordOutcome {
  int exitCode = 0;             // 0 when the movie was completed
  std::string error;            // one line when it was not
  std::string warning;          // one line told while recording (a take not started on its in-point)
  int64_t frames = 0;           // frames of the movie by the plug-in's last count
  bool droppedFrames = false;   // the plug-in reported dropped frames
  std::string startTimecode;    // of the first frame, as the plug-in reported it
  std::string status;           // the plug-in's last status text
  double longestServiceCall = 0;  // seconds the longest service call held the host's thread
  bool movieRemoved = false;    // nothing was recorded, and the empty movie is gone
  std::string frameHashes;      // the completed movie's frame-hash sidecar, when it has one
  bool started = false;         // the recording started: the file at the movie's path is this take's
};

class RecordSession {
 public:
  // settings: the blob handed to the plug-in at open. stop: set (from a signal handler)
  // to end the recording early. showProgress: show the progress as output says (the status
  // line on standard error, or JSON lines on standard output), and tell the outcome's warning
  // on standard error at once.
  RecordSession(PluginHost& host, const CaptureSettings& settings, const std::atomic<bool>& stop, bool showProgress,
                ProgressDisplay::Output output = ProgressDisplay::Output::kStatusLine);

  // Open, activate, record (service loop), stop, deactivate, close.
  RecordOutcome Run(const RecordRequest& request);

 private:
  PluginHost& mHost;
  CaptureSettings mSettings;
  const std::atomic<bool>& mStop;
  bool mShowProgress;
  ProgressDisplay::Output mOutput;
};

}  // namespace KTN
