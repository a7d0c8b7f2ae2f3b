// The capture window's view of the take's signal.
#include "Host/SignalPanel.h"

#include <chrono>

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QVBoxLayout>

#include "Host/LevelMeter.h"
#include "Host/LiveSignal.h"

namespace KTN {

SignalPanel::SignalPanel(QWidget* parent) : QWidget(parent) {
  QHBoxLayout* layout = new QHBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  mMeterRow = new QHBoxLayout();
  mMeterRow->setSpacing(2);
  layout->addLayout(mMeterRow);
  QVBoxLayout* events = new QVBoxLayout();
  events->addWidget(new QLabel("Signal events", this));
  mEvents = new QListWidget(this);
  mEvents->setObjectName("signalEvents");
  mEvents->setSelectionMode(QAbstractItemView::NoSelection);
  mEvents->setFocusPolicy(Qt::NoFocus);
  events->addWidget(mEvents, 1);
  layout->addLayout(events, 1);
  setMaximumHeight(150);
}

SignalPanel::~SignalPanel() = default;

void SignalPanel::ShowChannels(int channels) {
  if (channels < 0) channels = 0;
  while (mMeters.size() > static_cast<size_t>(channels)) {
    delete mMeters.back();
    mMeters.pop_back();
  }
  while (mMeters.size() < static_cast<size_t>(channels)) {
    mMeters.push_back(new LevelMeter(static_cast<int>(mMeters.size()) + 1, this));
    mMeterRow->addWidget(mMeters.back());
  }
  for (LevelMeter* meter : mMeters) meter->Clear();
}

void SignalPanel::Follow(const std::string& moviePath, uint32_t frameDuration, uint32_t timescale) {
  mEvents->clear();
  for (LevelMeter* meter : mMeters) meter->Clear();
  mSignal.reset(new LiveSignal(moviePath, frameDuration, timescale));
}

void SignalPanel::SetStartTimecode(const std::string& text) {
  if (mSignal) mSignal->SetStartTimecode(text);
}

void SignalPanel::Refresh() {
  if (!mSignal) return;
  if (mSignal->Update() != 0) {
    mSignal.reset();  // it said why in one line; the take goes on without its signal shown
    return;
  }
  const std::vector<std::string> lines = mSignal->NewLines();
  for (const std::string& line : lines) mEvents->addItem(QString::fromStdString(line));
  if (!lines.empty()) mEvents->scrollToBottom();
  // The meters show the peak of the slots written since the last refresh: a short dip (a
  // second of silence) or a clip between two refreshes shows, and a long dip is not held up
  // by what came before it. The levels say the take's channels; the settings' count stands
  // until they come, and without new slots the meters keep what they show.
  const std::vector<float> peaks = mSignal->NewPeaks();
  if (peaks.empty()) return;
  if (peaks.size() != mMeters.size()) ShowChannels(static_cast<int>(peaks.size()));
  const auto now = std::chrono::steady_clock::now();
  for (size_t channel = 0; channel < peaks.size(); ++channel) mMeters[channel]->ShowPeak(peaks[channel], now);
}

std::string SignalPanel::Snapshot() const {
  std::string lines;
  for (const LevelMeter* meter : mMeters) {
    lines += "meter " + std::to_string(meter->Channel()) + ": " + meter->Snapshot() + "\n";
  }
  for (int row = 0; row < mEvents->count(); ++row) {
    lines += "event " + std::to_string(row + 1) + ": " + mEvents->item(row)->text().toStdString() + "\n";
  }
  return lines;
}

}  // namespace KTN
