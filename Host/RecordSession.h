// One recording through the plug-in, in the order the editor drives it.
#pragma once

#include <stdint.h>

#include <atomic>
#include <string>

#include "Host/PluginHost.h"
#include "Settings/CaptureSettings.h"

namespace KTN {

struct RecordRequest {
  std::string moviePath;
  // Frames to record (pairs above 30 fps); 0x7FFFFFFF: until stopped. From an in-point, the
  // plug-in counts them and ends the recording; otherwise the host records from now and stops
  // once the plug-in reports this many (a frame arriving during the last hand-over may add one).
  int32_t frames = 0x7FFFFFFF;
  // Let the plug-in count from now too (exact counts when the card sends no timecode, since a
  // timecoded frame then waits for the in-point).
  bool pluginCounts = false;
  bool hasInPoint = false;      // start on a timecode
  uint32_t inPointFrames = 0;   // its frame count at the timecode rate
  uint8_t timecodeRate = 0;
  bool dropFrame = false;
  bool abortOnDrop = false;
  bool audio = true;
  double timeLimitSeconds = 0;  // stop after this long whatever happens (0: no limit)
};

struct RecordOutcome {
  int exitCode = 0;             // 0 when the movie was completed
  std::string error;            // one line when it was not
  int64_t frames = 0;           // the plug-in's last frame count
  bool droppedFrames = false;   // the plug-in reported dropped frames
  std::string startTimecode;    // of the first frame, as the plug-in reported it
  std::string status;           // the plug-in's last status text
};

class RecordSession {
 public:
  // settings: the blob handed to the plug-in at open. stop: set (from a signal handler)
  // to end the recording early. showProgress: draw progress on standard error.
  RecordSession(PluginHost& host, const CaptureSettings& settings, const std::atomic<bool>& stop, bool showProgress);

  RecordOutcome Run(const RecordRequest& request);

 private:
  static int32_t Status(int64_t callbackID, const char* text, int64_t frameCount);
  static int32_t Preroll(int64_t callbackID);
  static int32_t Timecode(int64_t callbackID, int32_t* frameNumber, int32_t* unused1, int32_t* unused2);
  static int32_t FormatReport(int64_t callbackID, int32_t, int32_t, int32_t, int32_t, int32_t, TimeRecord);

  PluginHost& mHost;
  CaptureSettings mSettings;
  const std::atomic<bool>& mStop;
  bool mShowProgress;
  std::string mStatusText;
  int64_t mFrames = 0;
};

}  // namespace KTN
