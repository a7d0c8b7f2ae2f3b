// The capture window's view of the take's signal: a level meter per sound channel and the list of events found.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include <QWidget>

class QHBoxLayout;
class QListWidget;

namespace KTN {

class LevelMeter;
class LiveSignal;

// Follows the take being recorded through its sidecars (LiveSignal): each Refresh (the window
// calls it four times a second) reads what they gained, shows each channel's peak over the
// sound slots written since the last refresh on its meter and appends the new events to the
// list, newest last and scrolled to, e.g. "01:00:02:10  black for 25 frames". A new take
// clears both. Main thread only; the meters and the list are children of the panel.
class SignalPanel : public QWidget {
  Q_OBJECT

 public:
  explicit SignalPanel(QWidget* parent);
  ~SignalPanel() override;

  // The meters of a take of channels sound channels (none: no meters), showing no level.
  void ShowChannels(int channels);
  // A new take at moviePath, of pictures frameDuration / timescale seconds a slot: the meters
  // and the list are cleared and its sidecars followed from now on.
  void Follow(const std::string& moviePath, uint32_t frameDuration, uint32_t timescale);
  // The timecode of the take's first frame, which the events' lines count from; empty while
  // unknown (they are told by slot).
  void SetStartTimecode(const std::string& text);
  // Reads the followed take's sidecars and shows what they gained.
  void Refresh();

  // What it shows, for unattended runs: "meter N: ..." lines (LevelMeter::Snapshot) and the
  // list's lines as "event N: ..." (from 1).
  std::string Snapshot() const;

 private:
  QHBoxLayout* mMeterRow;
  std::vector<LevelMeter*> mMeters;
  QListWidget* mEvents;
  std::unique_ptr<LiveSignal> mSignal;  // null between takes and after a failed read
};

}  // namespace KTN
