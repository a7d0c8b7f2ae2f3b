// A presenter that keeps what it was handed.
#include "Host/FakeProgressPresenter.h"

namespace KTN {

FakeProgressPresenter::FakeProgressPresenter(Calls* calls) : mCalls(calls) {}

void FakeProgressPresenter::Show(const ProgressFigures::Figures& figures, Clock::time_point) {
  mCalls->shown.push_back(figures);
}

void FakeProgressPresenter::Event(const LiveSignal::Found& found, Clock::time_point) { mCalls->events.push_back(found); }

void FakeProgressPresenter::Note(const std::string& line, Clock::time_point) { mCalls->notes.push_back(line); }

void FakeProgressPresenter::Finish(Clock::time_point) { ++mCalls->finished; }

}  // namespace KTN
