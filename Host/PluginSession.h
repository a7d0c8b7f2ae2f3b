// One open capture instance of the plug-in, driven step by step as the editor does.
#pragma once

#include <stdint.h>

#include <string>

#include "Host/PluginHost.h"
#include "Settings/CaptureSettings.h"

namespace KTN {

struct RecordRequest {
  std::string moviePath;  // absolute
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

// Main thread only. Each step returns an empty string or what failed, in one line (and
// keeps the plug-in's result in LastResult).
class PluginSession {
 public:
  PluginSession(PluginHost& host, const CaptureSettings& settings);
  // Closes what is still open.
  ~PluginSession();

  PluginSession(const PluginSession&) = delete;
  PluginSession& operator=(const PluginSession&) = delete;

  // Startup, setup information and audio format, then open with the settings blob.
  std::string Open();
  std::string Activate();
  std::string Deactivate();
  // The options dialog; the blob may change (it takes effect at the next activation).
  std::string ShowOptions();
  // Places the preview in window (a QWidget* on Linux) filling width x height.
  void SetDisplay(void* window, int width, int height);
  // Prepare and start a recording.
  std::string StartRecording(const RecordRequest& request);
  // One service call: the plug-in's result (0 go on, 9 done, else an error).
  int32_t Service();
  // Stop and close the recording; returns the first failure. A finished movie that holds no
  // picture and no sound (a take that never reached its in-point) is removed: there is
  // nothing in it to keep, and an empty file would pass for a take.
  std::string StopRecording();
  void Close();

  // The options button's label from the setup information, converted from Mac Roman.
  const std::string& OptionsLabel() const { return mOptionsLabel; }
  // The plug-in's latest status text.
  const std::string& StatusText() const { return mStatusText; }
  // The take's note, kept for the whole take (and after it, until the next): what the
  // plug-in said once, in its first report after the start, of an in-point take that started
  // without timecode; empty when it said nothing of the kind.
  const std::string& TakeNote() const { return mTakeNote; }
  // The same count in frames of the movie: above 30 frames a second the plug-in counts pairs,
  // except in its dropped-frames report, whose count is of frames.
  int64_t FramesRecorded() const;
  bool DroppedFrames() const { return mStatusText.find("Dropped frames") != std::string::npos; }
  const std::string& StartTimecode() const { return mStartTimecode; }
  // The start timecode when it is the card's: empty when the plug-in reported the host's own
  // answer instead. This host has no timecode of its own (its callback answers frame 0), so a
  // start at zero is its answer, which no movie need carry.
  std::string CardStartTimecode() const;
  const CaptureSettings& Settings() const;
  bool Recording() const { return mRecording; }
  // The last take's movie was empty and has been removed.
  bool MovieRemoved() const { return mMovieRemoved; }

  // One line for a plug-in result.
  static std::string Describe(int32_t result);

 private:
  static int32_t Status(int64_t callbackID, const char* text, int64_t frameCount);
  static int32_t Preroll(int64_t callbackID);
  static int32_t Timecode(int64_t callbackID, int32_t* frameNumber, int32_t* unused1, int32_t* unused2);
  static int32_t FormatReport(int64_t callbackID, int32_t, int32_t, int32_t, int32_t, int32_t, TimeRecord);

  PluginHost& mHost;
  void* mBlob = nullptr;        // the settings blob the editor keeps and lends the plug-in
  void* mInstance = nullptr;    // the plug-in's capture instance, opaque to the host
  bool mActive = false;
  bool mRecording = false;
  std::string mOptionsLabel;
  std::string mStatusText;
  std::string mTakeNote;
  int64_t mFrames = 0;
  std::string mStartTimecode;
  std::string mMoviePath;       // of the take being recorded or last recorded
  bool mMovieRemoved = false;
  bool mFailed = false;         // a service call of the take failed
};

}  // namespace KTN
