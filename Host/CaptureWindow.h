// The host program's capture window: live preview, options, record and stop, like an editor's panel.
#pragma once

#include <stdint.h>

#include <chrono>
#include <memory>
#include <string>

#include <QMainWindow>

#include "Host/PluginSession.h"

class QLineEdit;
class QPushButton;
class QTimer;

namespace KTN {

class CaptureReadout;
class MovieFollower;

// Main thread only. Opens and activates the plug-in when shown, places the preview in its
// preview area on every resize, and records through the same steps as the command line.
// Below the controls a readout shows the settings and the disk's recording time, and while
// recording the plug-in's status, elapsed time, frames, dropped frames and start timecode:
// the plug-in is serviced every 10 ms, the labels are refreshed four times a second and the
// movie and the disk are read once a second, so that Stop is handled between service calls
// whatever the load.
class CaptureWindow : public QMainWindow {
  Q_OBJECT

 public:
  // host: the loaded plug-in (borrowed). grey: the interface grey the window is painted in.
  CaptureWindow(PluginHost& host, const CaptureSettings& settings, const std::string& moviePath, int grey);
  ~CaptureWindow() override;

  // Opens and activates the plug-in; the empty string or what failed.
  std::string Start();
  // The area the preview is drawn in (the host's view of the display selector).
  QWidget* PreviewArea() const { return mPreviewArea; }
  // The preview as drawn: the plug-in's view in the preview area, grabbed; null image
  // before the plug-in has placed one.
  QImage GrabPreview() const;
  bool Recording() const { return mSession->Recording(); }
  // The frames of the movie the plug-in has reported in this take (or the last).
  int64_t Frames() const { return mSession->FramesRecorded(); }
  // The readout's texts, one "name: text" a line (CaptureReadout::Snapshot).
  std::string ReadoutSnapshot() const;

 public slots:
  void ShowOptions();
  void Record();
  void Stop();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  void Service();
  void PlacePreview();
  void ShowStatus(const std::string& text);
  // Asks whether the movie at path may be replaced: true for Replace, false for Keep it (the
  // default).
  bool ConfirmReplace(const std::string& path);
  // The take's figures from the plug-in (every 250 ms while recording).
  void RefreshTake();
  // The disk's recording time and, while recording, the dropped frames the movie holds so
  // far (once a second).
  void ReadDiskAndMovie();
  std::string MoviePathShown() const;

  PluginHost& mHost;
  std::unique_ptr<PluginSession> mSession;
  QWidget* mPreviewArea;
  QPushButton* mOptionsButton;
  QPushButton* mRecordButton;
  QPushButton* mStopButton;
  QLineEdit* mMoviePath;
  CaptureReadout* mReadout;
  QTimer* mServiceTimer;
  QTimer* mTakeTimer;
  QTimer* mSecondTimer;
  // The take being recorded, or the last one.
  std::string mTakePath;
  std::chrono::steady_clock::time_point mTakeStart;
  double mElapsed = 0;
  int64_t mDropped = 0;
  std::string mStartTimecode;  // empty while unknown
  std::unique_ptr<MovieFollower> mFollower;  // null between takes and after a failed read
};

}  // namespace KTN
