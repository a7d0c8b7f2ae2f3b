// What the host program shows while it records: the figures gathered once, shown as a status line or as JSON lines.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <memory>
#include <string>

#include "Host/ProgressFigures.h"
#include "Host/ProgressPresenter.h"
#include "Settings/CaptureSettings.h"

namespace KTN {

// Joins the figures of a take (ProgressFigures: time, frames, rate, the movie's slots and
// dropped frames, the disk's time left, the sound's peak, the signal's events) to the way
// they are shown: the status line on standard error (StatusLinePresenter) or one JSON object
// a line on standard output (JsonLinesPresenter). Each event found is handed to the
// presenter as it comes, and so is each update of the figures. Main thread only.
class ProgressDisplay {
 public:
  enum class Output { kStatusLine, kJsonLines };

  // Shown as output says: the status line on errors (the host program's standard error), or
  // JSON lines on out (its standard output) with notes on errors. moviePath and settings: the
  // take's movie and its settings.
  ProgressDisplay(Output output, FILE* out, FILE* errors, const std::string& moviePath, const CaptureSettings& settings);
  // Any presenter, with its figures (tests).
  ProgressDisplay(std::unique_ptr<ProgressPresenter> presenter, const std::string& moviePath,
                  const CaptureSettings& settings);
  ~ProgressDisplay();

  ProgressDisplay(const ProgressDisplay&) = delete;
  ProgressDisplay& operator=(const ProgressDisplay&) = delete;

  // status: the plug-in's last status text; frames: its count in frames of the movie
  // (PluginSession::FramesRecorded); expected: the frames the recording will hold (0: until
  // stopped). Cheap enough for every service call.
  void Update(const std::string& status, int64_t frames, int64_t expected);
  // A line for the user (a warning), without its line feed, on a line of its own at once.
  void Note(const std::string& line);
  // The timecode of the take's first frame, which the events count from; empty while
  // unknown (the events are then told by slot).
  void SetStartTimecode(const std::string& text);
  // Shows the latest figures if they are not shown yet and ends the live part.
  void Finish();
  // After Finish, once the recording has stopped: shows the events found since the last
  // look (the recording writes those that last to the take's end when it finishes).
  void FinalEvents();

 private:
  void ShowEvents();

  ProgressFigures mFigures;
  std::unique_ptr<ProgressPresenter> mPresenter;
};

}  // namespace KTN
