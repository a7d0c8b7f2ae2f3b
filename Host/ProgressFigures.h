// What a recording's progress is made of, gathered once for every way of showing it: time, frames, rate, the movie's slots, disk time left, the sound's peaks, the signal's events.
#pragma once

#include <stdint.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Host/LiveSignal.h"
#include "Settings/CaptureSettings.h"

namespace KTN {

class MovieFollower;

// Gathers the figures of a take while it records, for the status line and the JSON lines
// alike: the plug-in's own count and status as given on each update; the movie's frame slots,
// pictures and empty slots (read as it grows) and the time its disk lasts at the take's rate,
// read once a second; the signal's sidecars (the sound's peaks over the last second, and the
// events found) read four times a second. Times are passed in, so the presenters and their
// tests decide what "now" is. Main thread only.
class ProgressFigures {
 public:
  using Clock = std::chrono::steady_clock;

  // The figures as last gathered. Counts are of the movie's frames (also above 30 fps).
  struct Figures {
    bool waiting = false;      // the take waits for its in-point: only status says anything
    std::string status;        // the plug-in's last status text
    double elapsedSeconds = 0;  // recorded since the start, or since the in-point came
    int64_t frames = 0;        // the plug-in's count (PluginSession::FramesRecorded)
    int64_t expected = 0;      // the frames the take will hold; 0 until stopped
    double fps = 0;            // frames a second over the last second or two; 0 until measured
    int64_t slots = 0;         // the movie's frame slots so far
    int64_t pictures = 0;      // of them, the slots holding a picture
    int64_t dropped = 0;       // the empty ones
    double diskSecondsLeft = -1;  // what the movie's disk lasts at the take's rate; below 0 unknown
    std::vector<float> peaks;  // each channel's highest peak of the last second (dBFS, -inf for
                               // silence); empty without sound levels
  };

  // moviePath and settings: the take's movie and its settings; now: when the take started.
  ProgressFigures(const std::string& moviePath, const CaptureSettings& settings, Clock::time_point now);
  ~ProgressFigures();

  ProgressFigures(const ProgressFigures&) = delete;
  ProgressFigures& operator=(const ProgressFigures&) = delete;

  // status: the plug-in's last status text; frames: its count in frames of the movie;
  // expected: the frames the recording will hold (0: until stopped). Cheap enough for every
  // service call: the movie, the disk and the sidecars are read only when their time has come.
  void Update(const std::string& status, int64_t frames, int64_t expected, Clock::time_point now);
  // Reads the signal's sidecars now, whatever the time: the events the recording writes as
  // it finishes wait in NewEvents after it.
  void ReadSignal();
  // The timecode of the take's first frame, which the events count from; empty while unknown.
  void SetStartTimecode(const std::string& text);

  const Figures& Current() const { return mFigures; }
  // The events found since the last call, in the order the recording found them.
  std::vector<LiveSignal::Found> NewEvents();

 private:
  struct Sample {
    Clock::time_point time;
    int64_t frames = 0;
  };

  void ReadMovieAndDisk();

  std::string mMoviePath;
  CaptureSettings mSettings;
  std::unique_ptr<MovieFollower> mFollower;
  std::unique_ptr<LiveSignal> mSignal;  // null once a sidecar could not be read
  Clock::time_point mCreated;
  Clock::time_point mLastRead;
  Clock::time_point mLastSignalRead;
  Clock::time_point mRecordingSince;  // the first report that was not a wait for the in-point
  bool mWaited = false;     // a report was a wait for the in-point
  bool mRecording = false;  // a report was not
  Sample mRateFrom;  // the rate is measured from here (a second or two ago) ...
  Sample mRateNext;  // ... which moves here at the next reading
  std::vector<LiveSignal::Found> mNewEvents;
  Figures mFigures;
};

}  // namespace KTN
