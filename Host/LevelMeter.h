// One sound channel's level meter in the capture window: its peak on a dBFS scale, a peak hold, and red at full scale.
#pragma once

#include <chrono>
#include <string>

#include <QWidget>

namespace KTN {

// A vertical bar from -60 dBFS (bottom) to 0 dBFS (top) with ticks every 6 dB (labelled
// every 12), the channel's number under it. The bar shows the latest peak; a line marks the
// highest peak of the last two seconds (the hold); a peak at full scale (kFullScaleDb or
// above) turns the bar's top red, and it stays red until that hold ends. Main thread only.
class LevelMeter : public QWidget {
  Q_OBJECT

 public:
  static constexpr float kFullScaleDb = -0.1f;
  static constexpr std::chrono::milliseconds kHold{2000};

  // channel: counted from 1, as users count.
  LevelMeter(int channel, QWidget* parent);

  // The channel's peak (dBFS, -inf for digital silence) at now.
  void ShowPeak(float peakDb, std::chrono::steady_clock::time_point now);
  // Back to no level: nothing measured yet.
  void Clear();

  int Channel() const { return mChannel; }
  // What it shows, for unattended runs: "peak -20.0 dBFS, hold -18.5 dBFS", with ", full
  // scale" while red; "no level" before the first peak.
  std::string Snapshot() const;

  QSize sizeHint() const override;
  QSize minimumSizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  // The height in the bar's area of level dB (0 at LiveSignal::kFloorDb and below).
  int LevelY(float dB, const QRect& bar) const;

  const int mChannel;
  bool mMeasured = false;
  float mPeakDb = 0;
  float mHoldDb = 0;
  std::chrono::steady_clock::time_point mHeldSince;
  bool mFullScale = false;  // red: a full-scale peak within the hold
  std::chrono::steady_clock::time_point mFullScaleSince;
};

}  // namespace KTN
