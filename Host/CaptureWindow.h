// The host program's capture window: live preview, options, record and stop, like an editor's panel.
#pragma once

#include <stdint.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include <QMainWindow>
#include <QPixmap>

#include "Host/PluginSession.h"

class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTimer;

namespace KTN {

class CaptureReadout;
class MovieFollower;
class SignalPanel;
struct TakeVerification;

// Main thread only. Opens and activates the plug-in when shown, places the preview in its
// preview area on every resize, and records through the same steps as the command line.
// Below the controls a readout shows the settings and the disk's recording time, and while
// recording the plug-in's status, elapsed time, frames, dropped frames and start timecode:
// the plug-in is serviced every 10 ms, the labels are refreshed four times a second and the
// movie and the disk are read once a second, so that Stop is handled between service calls
// whatever the load. Under the readout, a level meter per sound channel and the list of the
// events the recording finds in the signal follow the take's sidecars at the labels' pace.
// With "Verify after Stop" ticked, a take the user stopped (or that reached
// its frame limit) is then read again from the disk and checked against its frame hashes on a
// thread of its own, the window serviced meanwhile; Record waits for the check, which reads at
// the disk's full rate and would take it from a new take. Once a take is recorded whole (and
// checked, when it is), its report picture is drawn on that thread (its thumbnails decoded
// from the movie), written beside it and shown under the readout; Record waits for it too.
// Closing the window stops a take without checking it or drawing its report, and waits for
// a check or report under way.
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
  // The readout's texts, one "name: text" a line (CaptureReadout::Snapshot), then the
  // meters' and the events' (SignalPanel::Snapshot).
  std::string ReadoutSnapshot() const;
  // Ticks or clears "Verify after Stop".
  void SetVerifyAfterStop(bool verify);
  // A finished take is being checked against its frame hashes, or its report drawn.
  bool Finishing() const { return mFinishing; }

 public slots:
  void ShowOptions();
  void Record();
  void Stop();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  void Service();
  // Stops the take and shows how it ended; verify: check it afterwards (when it was recorded
  // whole).
  void EndTake(bool verify);
  // Off the main thread: checks the take just finished when verify is set (its outcome comes
  // back to ShowVerification), then draws its report beside it (which comes back to
  // ShowReport).
  void StartAfterTake(bool verify);
  void ShowVerification(const TakeVerification& check);
  // Shows the report picture written at path under the readout, scaled to the window's width
  // (ScaleReport, on every resize); path empty: problem says why there is none.
  void ShowReport(const std::string& path, const std::string& problem);
  void ScaleReport();
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
  QCheckBox* mVerify;
  CaptureReadout* mReadout;
  QLabel* mReport;
  QPixmap mReportPicture;  // the last take's report, as drawn
  SignalPanel* mSignalPanel;
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
  // The check and report of the last take: their thread (joined before the next and when the
  // window goes), and whether the report is still to come.
  std::thread mAfterTake;
  bool mFinishing = false;
  bool mClosing = false;  // the window is closing: a take it stops gets no report
};

}  // namespace KTN
