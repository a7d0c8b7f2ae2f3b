// The status line: a recording's progress for the person at the terminal, with the signal's events as lines above it.
#pragma once

#include <stdio.h>

#include <string>

#include "Host/ProgressPresenter.h"

namespace KTN {

// One status line: the time recorded, the frames (/N when the take's length is set), their
// rate, the frames dropped so far (the movie's empty slots), the highest sound peak of the
// last second (left out for a take without sound) and the time the movie's disk lasts, e.g.
//   0:01:23 | 2075/7500 frames | 25.0 fps | 0 dropped | peak -20.0 dBFS | disk: 2 h 13 min left
// Each event is a line of its own above it, e.g. "01:00:02:10  black for 25 frames". While
// the take waits for its in-point, the plug-in's report of what it waits for takes its place.
// On a terminal the line is redrawn in place ("\r", then erased to its end) at most four
// times a second, cut to the terminal's width; elsewhere it is written as a plain line once
// a second. Writes to out (the host program's standard error), which it does not own.
class StatusLinePresenter : public ProgressPresenter {
 public:
  // created: when the take started (plain lines come once a second from then).
  StatusLinePresenter(FILE* out, Clock::time_point created);

  void Show(const ProgressFigures::Figures& figures, Clock::time_point now) override;
  void Event(const LiveSignal::Found& found, Clock::time_point now) override;
  void Note(const std::string& line, Clock::time_point now) override;
  // Draws the latest figures if they are not shown yet and ends the redrawn line.
  void Finish(Clock::time_point now) override;

  // The line for figures that are not a wait.
  static std::string Text(const ProgressFigures::Figures& figures);

 private:
  void Draw(Clock::time_point now);

  FILE* mOut;
  bool mTerminal;
  Clock::time_point mLastDrawn;
  std::string mText;       // the latest line
  bool mShown = true;      // mText has been written
  bool mLineOpen = false;  // a redrawn line is on the terminal, not yet ended
  bool mFinished = false;  // Finish was called: nothing is redrawn any more
};

}  // namespace KTN
