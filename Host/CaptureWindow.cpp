// The host program's capture window.
#include "Host/CaptureWindow.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QOpenGLWidget>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

#include "Host/HostSettingsFile.h"

namespace KTN {

CaptureWindow::CaptureWindow(PluginHost& host, const CaptureSettings& settings, const std::string& moviePath, int grey)
    : mHost(host), mSession(new PluginSession(host, settings)) {
  setWindowTitle("Kestrin Capture");
  QPalette palette = this->palette();
  palette.setColor(QPalette::Window, QColor(grey, grey, grey));
  palette.setColor(QPalette::WindowText, grey <= 89 ? QColor(220, 220, 220) : QColor(20, 20, 20));
  setPalette(palette);
  setAutoFillBackground(true);

  QWidget* central = new QWidget(this);
  QVBoxLayout* layout = new QVBoxLayout(central);
  mPreviewArea = new QWidget(central);
  mPreviewArea->setMinimumSize(480, 270);
  QPalette black = mPreviewArea->palette();
  black.setColor(QPalette::Window, Qt::black);
  mPreviewArea->setPalette(black);
  mPreviewArea->setAutoFillBackground(true);
  mPreviewArea->installEventFilter(this);
  layout->addWidget(mPreviewArea, 1);

  QHBoxLayout* controls = new QHBoxLayout();
  mOptionsButton = new QPushButton("Settings...", central);
  mMoviePath = new QLineEdit(QString::fromStdString(moviePath), central);
  mRecordButton = new QPushButton("Record", central);
  mStopButton = new QPushButton("Stop", central);
  mStopButton->setEnabled(false);
  controls->addWidget(mOptionsButton);
  controls->addWidget(mMoviePath, 1);
  controls->addWidget(mRecordButton);
  controls->addWidget(mStopButton);
  layout->addLayout(controls);
  mStatus = new QLabel("Not recording", central);
  layout->addWidget(mStatus);
  setCentralWidget(central);
  resize(800, 560);

  mServiceTimer = new QTimer(this);
  mServiceTimer->setInterval(10);  // the editor's idle rate
  connect(mServiceTimer, &QTimer::timeout, this, &CaptureWindow::Service);
  connect(mOptionsButton, &QPushButton::clicked, this, &CaptureWindow::ShowOptions);
  connect(mRecordButton, &QPushButton::clicked, this, &CaptureWindow::Record);
  connect(mStopButton, &QPushButton::clicked, this, &CaptureWindow::Stop);
}

CaptureWindow::~CaptureWindow() {
  mServiceTimer->stop();
  mSession.reset();  // stops, deactivates and closes the plug-in
}

std::string CaptureWindow::Start() {
  PluginHost::SetMainWindow(this);
  std::string failure = mSession->Open();
  if (!failure.empty()) return failure;
  if (!mSession->OptionsLabel().empty()) mOptionsButton->setText(QString::fromStdString(mSession->OptionsLabel()));
  failure = mSession->Activate();
  if (failure.empty()) PlacePreview();
  return failure;
}

void CaptureWindow::PlacePreview() {
  qreal ratio = mPreviewArea->devicePixelRatioF();
  mSession->SetDisplay(mPreviewArea, static_cast<int>(mPreviewArea->width() * ratio),
                       static_cast<int>(mPreviewArea->height() * ratio));
}

bool CaptureWindow::eventFilter(QObject* watched, QEvent* event) {
  if (watched == mPreviewArea && event->type() == QEvent::Resize) {
    PlacePreview();
    // The plug-in's view fills the area it was placed in.
    if (QWidget* view = mPreviewArea->findChild<QWidget*>("KTNW", Qt::FindDirectChildrenOnly)) view->setGeometry(mPreviewArea->rect());
  }
  return QMainWindow::eventFilter(watched, event);
}

QImage CaptureWindow::GrabPreview() const {
  QOpenGLWidget* view = mPreviewArea->findChild<QOpenGLWidget*>("KTNW", Qt::FindDirectChildrenOnly);
  return view ? view->grabFramebuffer() : QImage();
}

void CaptureWindow::ShowOptions() {
  std::string failure = mSession->ShowOptions();
  if (!failure.empty()) {
    ShowStatus(failure);
    return;
  }
  SaveHostSettings(mSession->Settings());
  // New settings take effect at the next activation.
  if (!mSession->Recording()) {
    mSession->Deactivate();
    failure = mSession->Activate();
    if (!failure.empty()) ShowStatus(failure);
    PlacePreview();
  }
}

void CaptureWindow::Record() {
  RecordRequest request;
  request.moviePath = mMoviePath->text().toStdString();
  std::string failure = mSession->StartRecording(request);
  if (!failure.empty()) {
    ShowStatus(failure);
    return;
  }
  mRecordButton->setEnabled(false);
  mStopButton->setEnabled(true);
  mOptionsButton->setEnabled(false);
  mServiceTimer->start();
}

void CaptureWindow::Service() {
  int32_t rc = mSession->Service();
  ShowStatus(mSession->StatusText() + " - " + std::to_string(mSession->Frames()) + " frames");
  if (rc != rmNoErr) {
    Stop();
    if (rc != rmFrameLimitReached) ShowStatus("Recording ended: " + PluginSession::Describe(rc));
  }
}

void CaptureWindow::Stop() {
  mServiceTimer->stop();
  std::string failure = mSession->StopRecording();
  mRecordButton->setEnabled(true);
  mStopButton->setEnabled(false);
  mOptionsButton->setEnabled(true);
  ShowStatus(failure.empty() ? "Recorded " + std::to_string(mSession->Frames()) + " frames to " +
                                   mMoviePath->text().toStdString() + (mSession->DroppedFrames() ? " (WARNING: frames were dropped)" : "")
                             : failure);
}

void CaptureWindow::ShowStatus(const std::string& text) {
  mStatus->setText(QString::fromStdString(text));
}

void CaptureWindow::closeEvent(QCloseEvent* event) {
  if (mSession->Recording()) Stop();
  event->accept();
}

}  // namespace KTN
