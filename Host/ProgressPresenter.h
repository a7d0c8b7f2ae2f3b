// One way of showing a recording's progress: the status line for people, JSON lines for scripts.
#pragma once

#include <chrono>
#include <string>

#include "Host/LiveSignal.h"
#include "Host/ProgressFigures.h"

namespace KTN {

// Shows what ProgressFigures gathered. ProgressDisplay calls it on the main thread: Show on
// every update (the presenter decides how often anything is written), Event for each event
// as it is found, Note for a line for the user (a warning), and Finish once the take has
// stopped recording (events found after it may still come).
class ProgressPresenter {
 public:
  using Clock = ProgressFigures::Clock;

  virtual ~ProgressPresenter() = default;

  virtual void Show(const ProgressFigures::Figures& figures, Clock::time_point now) = 0;
  virtual void Event(const LiveSignal::Found& found, Clock::time_point now) = 0;
  virtual void Note(const std::string& line, Clock::time_point now) = 0;
  virtual void Finish(Clock::time_point now) = 0;
};

}  // namespace KTN
