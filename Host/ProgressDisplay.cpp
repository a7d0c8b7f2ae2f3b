// What the host program shows while it records.
#include "Host/ProgressDisplay.h"

#include "Host/JsonLinesPresenter.h"
#include "Host/StatusLinePresenter.h"

namespace KTN {

namespace {

std::unique_ptr<ProgressPresenter> MakePresenter(ProgressDisplay::Output output, FILE* out, FILE* errors) {
  if (output == ProgressDisplay::Output::kJsonLines) return std::unique_ptr<ProgressPresenter>(new JsonLinesPresenter(out, errors));
  return std::unique_ptr<ProgressPresenter>(new StatusLinePresenter(errors, ProgressFigures::Clock::now()));
}

}  // namespace

ProgressDisplay::ProgressDisplay(Output output, FILE* out, FILE* errors, const std::string& moviePath,
                                 const CaptureSettings& settings)
    : ProgressDisplay(MakePresenter(output, out, errors), moviePath, settings) {}

ProgressDisplay::ProgressDisplay(std::unique_ptr<ProgressPresenter> presenter, const std::string& moviePath,
                                 const CaptureSettings& settings)
    : mFigures(moviePath, settings, ProgressFigures::Clock::now()), mPresenter(std::move(presenter)) {}

ProgressDisplay::~ProgressDisplay() = default;

void ProgressDisplay::Update(const std::string& status, int64_t frames, int64_t expected) {
  const ProgressFigures::Clock::time_point now = ProgressFigures::Clock::now();
  mFigures.Update(status, frames, expected, now);
  ShowEvents();
  mPresenter->Show(mFigures.Current(), now);
}

void ProgressDisplay::ShowEvents() {
  for (const LiveSignal::Found& found : mFigures.NewEvents()) mPresenter->Event(found, ProgressFigures::Clock::now());
}

void ProgressDisplay::Note(const std::string& line) { mPresenter->Note(line, ProgressFigures::Clock::now()); }

void ProgressDisplay::SetStartTimecode(const std::string& text) { mFigures.SetStartTimecode(text); }

void ProgressDisplay::Finish() { mPresenter->Finish(ProgressFigures::Clock::now()); }

void ProgressDisplay::FinalEvents() {
  Finish();
  mFigures.ReadSignal();
  ShowEvents();
}

}  // namespace KTN
