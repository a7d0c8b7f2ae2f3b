// The host program's capture window: live preview, options, record and stop, like an editor's panel.
#pragma once

#include <memory>
#include <string>

#include <QMainWindow>

#include "Host/PluginSession.h"

class QLabel;
class QLineEdit;
class QPushButton;
class QTimer;

namespace KTN {

// Main thread only. Opens and activates the plug-in when shown, places the preview in its
// preview area on every resize, and records through the same steps as the command line.
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

  PluginHost& mHost;
  std::unique_ptr<PluginSession> mSession;
  QWidget* mPreviewArea;
  QPushButton* mOptionsButton;
  QPushButton* mRecordButton;
  QPushButton* mStopButton;
  QLineEdit* mMoviePath;
  QLabel* mStatus;
  QTimer* mServiceTimer;
};

}  // namespace KTN
