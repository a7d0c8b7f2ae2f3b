// What the host program shows while it records: time, frames, rate, dropped frames, sound peak and disk time left, and the signal's events.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <chrono>
#include <memory>
#include <string>

#include "Settings/CaptureSettings.h"

namespace KTN {

class LiveSignal;
class MovieFollower;

// One status line: the time recorded, the frames, their rate over the last second or two,
// the frames dropped so far (the empty frame slots of the movie, read as it grows), the
// highest sound peak of the last second (from the take's levels sidecar; left out for a take
// without sound) and the time the movie's disk lasts at the take's rate, e.g.
//   0:01:23 | 2075 frames | 25.0 fps | 0 dropped | peak -20.0 dBFS | disk: 2 h 13 min left
// Each event the recording finds in the signal (the take's events sidecar, read four times a
// second) is written as a line of its own above it, e.g. "01:00:02:10  black for 25 frames".
// While a recording waits for its in-point, the plug-in's report of what it waits for and
// where the signal is takes its place. On a terminal the line is redrawn in place ("\r",
// then erased to its end) at most four times a second, cut to the terminal's width;
// elsewhere it is written as a plain line once a second. Main thread only.
class ProgressDisplay {
 public:
  // out: where to write (the host program's standard error); moviePath and settings: the
  // take's movie and its settings.
  ProgressDisplay(FILE* out, const std::string& moviePath, const CaptureSettings& settings);
  ~ProgressDisplay();

  ProgressDisplay(const ProgressDisplay&) = delete;
  ProgressDisplay& operator=(const ProgressDisplay&) = delete;

  // status: the plug-in's last status text; frames: its count in frames of the movie
  // (PluginSession::FramesRecorded); expected: the frames the recording will hold (0: until
  // stopped). Cheap enough for every service call: the movie and the disk are read once a
  // second.
  void Update(const std::string& status, int64_t frames, int64_t expected);
  // Writes line (a warning or an event, without its line feed) at once, on a line of its own:
  // on a terminal above the redrawn line, which is drawn again below it unless the display
  // has finished.
  void Note(const std::string& line);
  // The timecode of the take's first frame, which the event lines count from; empty while
  // unknown (the events are then told by slot).
  void SetStartTimecode(const std::string& text);
  // Draws the latest figures if they are not shown yet and ends the redrawn line.
  void Finish();
  // After Finish, once the recording has stopped: writes the events found since the last
  // look (the recording writes those that last to the take's end when it finishes), as
  // plain lines.
  void FinalEvents();

 private:
  using Clock = std::chrono::steady_clock;
  struct Sample {
    Clock::time_point time;
    int64_t frames = 0;
  };

  std::string Figures(Clock::time_point now, int64_t frames, int64_t expected);
  void ReadMovieAndDisk();
  // Reads the signal's sidecars: writes the new events above the line and keeps the peak.
  void ReadSignal();
  void Draw(Clock::time_point now);

  FILE* mOut;
  bool mTerminal;
  std::string mMoviePath;
  CaptureSettings mSettings;
  std::unique_ptr<MovieFollower> mFollower;
  std::unique_ptr<LiveSignal> mSignal;  // null once a sidecar could not be read
  Clock::time_point mCreated;
  Clock::time_point mLastDrawn;
  Clock::time_point mLastRead;
  Clock::time_point mLastSignalRead;
  Clock::time_point mRecordingSince;  // the first report that was not a wait for the in-point
  bool mWaited = false;     // a report was a wait for the in-point
  bool mRecording = false;  // a report was not
  Sample mRateFrom;  // the rate is measured from here (a second or two ago) ...
  Sample mRateNext;  // ... which moves here at the next reading
  int64_t mDropped = 0;
  double mSecondsLeft = -1;
  std::string mPeak;          // the line's peak part as last read ("" without sound levels)
  std::string mText;          // the latest line
  bool mShown = true;         // mText has been written
  bool mLineOpen = false;     // a redrawn line is on the terminal, not yet ended
  bool mFinished = false;     // Finish was called: nothing is redrawn any more
};

}  // namespace KTN
