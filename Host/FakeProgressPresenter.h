// A presenter that keeps what it was handed, for the tests of the progress display.
#pragma once

#include <string>
#include <vector>

#include "Host/ProgressPresenter.h"

namespace KTN {

// Keeps every call ProgressDisplay makes: the figures of each Show, each event, each note and
// whether Finish came. Main thread only.
class FakeProgressPresenter : public ProgressPresenter {
 public:
  struct Calls {
    std::vector<ProgressFigures::Figures> shown;
    std::vector<LiveSignal::Found> events;
    std::vector<std::string> notes;
    int finished = 0;
  };

  // calls: where the calls are kept; outlives the presenter (the display owns it).
  explicit FakeProgressPresenter(Calls* calls);

  void Show(const ProgressFigures::Figures& figures, Clock::time_point now) override;
  void Event(const LiveSignal::Found& found, Clock::time_point now) override;
  void Note(const std::string& line, Clock::time_point now) override;
  void Finish(Clock::time_point now) override;

 private:
  Calls* mCalls;
};

}  // namespace KTN
