// The capture window's readout: the settings line, the disk time, the plug-in's status and the take's figures.
#pragma once

#include <stdint.h>

#include <string>

#include <QWidget>

#include "Settings/CaptureSettings.h"

class QLabel;

namespace KTN {

// Labels only: the window decides what to show and when (a few times a second at most).
// Warnings (a disk that lasts less than kShortDiskSeconds, dropped frames, the take's note)
// are drawn in a red that reads on the window's background, light or dark. Main thread only; the labels
// are children of the readout.
class CaptureReadout : public QWidget {
  Q_OBJECT

 public:
  static constexpr double kShortDiskSeconds = 5 * 60;

  explicit CaptureReadout(QWidget* parent);

  // "HD 1080i 50 · Uncompressed 10-bit 4:2:2 · 2 ch 24-bit 48 kHz".
  void ShowSettings(const CaptureSettings& settings);
  // The free space as recording time at bytesPerSecond; secondsLeft < 0: it could not be read.
  void ShowDiskTime(double secondsLeft, double bytesPerSecond);
  // The plug-in's status, or what the window says between takes.
  void ShowStatus(const std::string& text);
  // A note on the take that stays while the status changes (the plug-in says it once): shown
  // under the status, in red; empty hides it.
  void ShowNote(const std::string& text);
  // What checking the finished take against its frame hashes found (or that it is being
  // checked), under the note; red when warning (the take differs, or could not be checked).
  // Empty hides it.
  void ShowVerification(const std::string& text, bool warning);
  // The take's figures, shown from the first take on. frames: as the plug-in counts them;
  // startTimecode: empty while unknown.
  void ShowTake(double elapsedSeconds, int64_t frames, int64_t droppedFrames, const std::string& startTimecode);

  // Every label's text as "name: text" lines (the take's, the note and the verification only
  // once shown), and the colour of those that can warn as "name colour: #rrggbb": what a
  // person sees, for unattended runs.
  std::string Snapshot() const;

 private:
  void Warn(QLabel* label, bool warning);

  QLabel* mSettings;
  QLabel* mDisk;
  QLabel* mStatus;
  QLabel* mNote;
  QLabel* mVerification;
  QWidget* mTake;
  QLabel* mElapsed;
  QLabel* mFrames;
  QLabel* mDropped;
  QLabel* mStart;
};

}  // namespace KTN
