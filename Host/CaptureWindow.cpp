// The host program's capture window.
#include "Host/CaptureWindow.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QOpenGLWidget>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

#include "Host/CaptureReadout.h"
#include "Host/HostSettingsFile.h"
#include "Host/InPointStatus.h"
#include "Host/KeptMovie.h"
#include "Host/MoviePath.h"
#include "Host/RecordingFailure.h"
#include "Host/RecordingRate.h"
#include "Host/ReportCommand.h"
#include "Host/SignalPanel.h"
#include "Host/TakeVerification.h"
#include "Movie/MovieFollower.h"
#include "Movie/TimecodeTrack.h"

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
  mOptionsButton->setObjectName("optionsButton");
  mMoviePath = new QLineEdit(QString::fromStdString(moviePath), central);
  mMoviePath->setObjectName("moviePath");
  mRecordButton = new QPushButton("Record", central);
  mRecordButton->setObjectName("recordButton");
  mStopButton = new QPushButton("Stop", central);
  mStopButton->setObjectName("stopButton");
  mStopButton->setEnabled(false);
  mVerify = new QCheckBox("Verify after Stop", central);
  mVerify->setObjectName("verifyAfterStop");
  mVerify->setToolTip("Read the take again from the disk once it is finished and check it against its frame hashes");
  controls->addWidget(mOptionsButton);
  controls->addWidget(mMoviePath, 1);
  controls->addWidget(mVerify);
  controls->addWidget(mRecordButton);
  controls->addWidget(mStopButton);
  layout->addLayout(controls);
  mReadout = new CaptureReadout(central);
  mReadout->ShowSettings(mSession->Settings());
  layout->addWidget(mReadout);
  // The last take's report picture, as wide as the window, once it is drawn.
  mReport = new QLabel(central);
  mReport->setObjectName("takeReport");
  mReport->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
  mReport->setFixedHeight(0);
  mReport->installEventFilter(this);
  layout->addWidget(mReport);
  mSignalPanel = new SignalPanel(central);
  mSignalPanel->ShowChannels(static_cast<int>(mSession->Settings().audioChannels));
  layout->addWidget(mSignalPanel);
  setCentralWidget(central);
  resize(800, 720);

  mServiceTimer = new QTimer(this);
  mServiceTimer->setInterval(10);  // the editor's idle rate
  connect(mServiceTimer, &QTimer::timeout, this, &CaptureWindow::Service);
  mTakeTimer = new QTimer(this);
  mTakeTimer->setInterval(250);
  connect(mTakeTimer, &QTimer::timeout, this, &CaptureWindow::RefreshTake);
  mSecondTimer = new QTimer(this);
  mSecondTimer->setInterval(1000);
  connect(mSecondTimer, &QTimer::timeout, this, &CaptureWindow::ReadDiskAndMovie);
  mSecondTimer->start();
  ReadDiskAndMovie();
  connect(mMoviePath, &QLineEdit::editingFinished, this, &CaptureWindow::ReadDiskAndMovie);
  connect(mOptionsButton, &QPushButton::clicked, this, &CaptureWindow::ShowOptions);
  connect(mRecordButton, &QPushButton::clicked, this, &CaptureWindow::Record);
  connect(mStopButton, &QPushButton::clicked, this, &CaptureWindow::Stop);
}

CaptureWindow::~CaptureWindow() {
  // A check or report under way ends first: what it posts to this window is dropped with it.
  if (mAfterTake.joinable()) mAfterTake.join();
  mServiceTimer->stop();
  mTakeTimer->stop();
  mSecondTimer->stop();
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
  // The plug-in's view follows the area's size by itself; the display position is the host's.
  if (watched == mPreviewArea && event->type() == QEvent::Resize) PlacePreview();
  if (watched == mReport && event->type() == QEvent::Resize) ScaleReport();
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
  mReadout->ShowSettings(mSession->Settings());
  mSignalPanel->ShowChannels(static_cast<int>(mSession->Settings().audioChannels));
  ReadDiskAndMovie();
  // New settings take effect at the next activation.
  if (!mSession->Recording()) {
    mSession->Deactivate();
    failure = mSession->Activate();
    if (!failure.empty()) ShowStatus(failure);
    PlacePreview();
  }
}

void CaptureWindow::Record() {
  if (mFinishing) return;  // the button is off meanwhile
  RecordRequest request;
  request.moviePath = mMoviePath->text().trimmed().toStdString();
  std::string problem;
  if (!MoviePath::MakeAbsolute(request.moviePath, &problem) ||
      !(problem = MoviePath::Problem(request.moviePath)).empty()) {
    ShowStatus("Cannot record to " + request.moviePath + ": " + problem);
    return;
  }
  // An earlier take at the path is replaced only when the user says so.
  if (MoviePath::Exists(request.moviePath) && !ConfirmReplace(request.moviePath)) {
    ShowStatus("Not recorded: " + request.moviePath + " exists already, and was kept");
    return;
  }
  mMoviePath->setText(QString::fromStdString(request.moviePath));  // the take's path, as recorded
  std::string failure = mSession->StartRecording(request);
  if (!failure.empty()) {
    ShowStatus(failure);
    return;
  }
  mRecordButton->setEnabled(false);
  mStopButton->setEnabled(true);
  mOptionsButton->setEnabled(false);
  mMoviePath->setEnabled(false);
  mTakePath = request.moviePath;
  mTakeStart = std::chrono::steady_clock::now();
  mElapsed = 0;
  mDropped = 0;
  mStartTimecode.clear();
  mFollower.reset(new MovieFollower(mTakePath));
  mReadout->ShowNote(std::string());  // the last take's
  mReadout->ShowVerification(std::string(), false);
  mReportPicture = QPixmap();  // the last take's report goes with it
  ScaleReport();
  mSignalPanel->Follow(mTakePath, mSession->Settings().frameDuration, mSession->Settings().timeScale);
  ShowStatus("Recording started");
  RefreshTake();
  mServiceTimer->start();
  mTakeTimer->start();
}

void CaptureWindow::Service() {
  int32_t rc = mSession->Service();
  if (rc == rmNoErr) return;
  if (rc == rmFrameLimitReached) {
    Stop();
    return;
  }
  // How the server ended is read before stopping reaps it; the line, once the movie no
  // longer changes.
  RecordingFailure failure(rc);
  EndTake(false);
  std::string line = failure.Line(mTakePath, mStartTimecode);
  if (!line.empty()) line[0] = static_cast<char>(toupper(static_cast<unsigned char>(line[0])));
  ShowStatus(line);
}

void CaptureWindow::Stop() {
  EndTake(mVerify->isChecked());
}

void CaptureWindow::EndTake(bool verify) {
  if (!mSession->Recording()) return;
  mServiceTimer->stop();
  RefreshTake();  // the elapsed time stops here
  mTakeTimer->stop();
  std::string failure = mSession->StopRecording();
  // The recording writes the events that last to the take's end as it finishes.
  mSignalPanel->Refresh();
  mRecordButton->setEnabled(true);
  mStopButton->setEnabled(false);
  mOptionsButton->setEnabled(true);
  mMoviePath->setEnabled(true);
  // The finished movie, read whole, has the take's final count of empty slots.
  mFollower.reset();
  MovieFollower finished(mTakePath);
  int64_t frames = mSession->FramesRecorded();
  if (!mSession->MovieRemoved() && finished.Update() == 0) {
    const MovieSummary& summary = finished.Summary();
    frames = static_cast<int64_t>(summary.pictureSlots);  // the movie's frames: above 30 fps the plug-in counts pairs
    mDropped = static_cast<int64_t>(summary.EmptySlots());
    if (mStartTimecode.empty() && summary.hasTimecode) mStartTimecode = summary.startTimecode;
  }
  mReadout->ShowTake(mElapsed, frames, mDropped, mStartTimecode);
  // A take the plug-in stopped is finished only when its movie says so (its index and
  // timecode come after the last frame, where a removed folder or a full disk can stop them).
  if (failure.empty() && !mSession->MovieRemoved()) {
    const bool timed = TimecodeTrack::CountableRate(mSession->Settings().frameDuration, mSession->Settings().timeScale);
    failure = KeptMovie(mTakePath, timed ? mSession->CardStartTimecode() : std::string()).Incomplete();
    if (!failure.empty()) failure[0] = static_cast<char>(toupper(static_cast<unsigned char>(failure[0])));
  }
  if (!failure.empty()) {
    ShowStatus(failure);
  } else if (mSession->MovieRemoved()) {
    ShowStatus("Nothing was recorded: the take ended before its first frame, and its empty movie was removed");
  } else {
    std::string line = "Recorded " + std::to_string(frames) + " frames to " + mTakePath;
    if (mDropped > 0) {
      line += " (WARNING: " + std::to_string(mDropped) + " frames dropped)";
    } else if (mSession->DroppedFrames()) {
      line += " (WARNING: frames were dropped)";  // reported by the plug-in, not found in the movie
    }
    ShowStatus(line);
    // A window that closes leaves the take as it is, without its report.
    if (!mClosing) StartAfterTake(verify);
  }
  ReadDiskAndMovie();
}

void CaptureWindow::SetVerifyAfterStop(bool verify) {
  mVerify->setChecked(verify);
}

void CaptureWindow::StartAfterTake(bool verify) {
  if (mAfterTake.joinable()) mAfterTake.join();  // the last take's, whose report has come
  mFinishing = true;
  mRecordButton->setEnabled(false);
  if (verify) mReadout->ShowVerification("Verifying...", false);
  // The thread touches nothing of the window: what it finds is posted to the main thread, and
  // the window joins it before it goes. The report follows the check, and says its outcome.
  mAfterTake = std::thread([this, path = mTakePath, verify] {
    if (verify) {
      const TakeVerification check = TakeVerification::Of(path);
      QMetaObject::invokeMethod(this, [this, check] { ShowVerification(check); }, Qt::QueuedConnection);
    }
    std::string problem;
    const std::string report = WriteReportBeside(path, &problem);
    QMetaObject::invokeMethod(this, [this, report, problem] { ShowReport(report, problem); }, Qt::QueuedConnection);
  });
}

void CaptureWindow::ShowVerification(const TakeVerification& check) {
  mReadout->ShowVerification(check.Sentence(), check.result != TakeVerification::Result::kVerified);
}

void CaptureWindow::ShowReport(const std::string& path, const std::string& problem) {
  mFinishing = false;
  mRecordButton->setEnabled(!mSession->Recording());
  mReportPicture = path.empty() ? QPixmap() : QPixmap(QString::fromStdString(path));
  if (path.empty()) mReadout->ShowNote(problem);
  ScaleReport();
}

void CaptureWindow::ScaleReport() {
  const int width = mReport->width();
  if (mReportPicture.isNull() || width <= 0) {
    mReport->clear();
    mReport->setFixedHeight(0);
    return;
  }
  if (!mReport->pixmap().isNull() && mReport->pixmap().width() == width) return;  // the size it has
  const QPixmap scaled = mReportPicture.scaledToWidth(width, Qt::SmoothTransformation);
  mReport->setPixmap(scaled);
  mReport->setFixedHeight(scaled.height());
}

void CaptureWindow::RefreshTake() {
  if (!mSession->Recording()) return;
  const std::string& status = mSession->StatusText();
  const auto now = std::chrono::steady_clock::now();
  // A take that waits for its in-point has not begun: its time starts when the wait ends.
  if (InPointStatus(status).Waiting()) mTakeStart = now;
  mElapsed = std::chrono::duration<double>(now - mTakeStart).count();
  if (!status.empty()) ShowStatus(status);
  // Said once by the plug-in, between two refreshes: the session keeps it for the take.
  mReadout->ShowNote(mSession->TakeNote());
  // The plug-in names the first frame's timecode when it starts at once; a take that waited
  // for its in-point has it in the movie's timecode track.
  mStartTimecode = mSession->StartTimecode();
  if (mStartTimecode.empty() && mFollower && mFollower->Summary().hasTimecode) mStartTimecode = mFollower->Summary().startTimecode;
  mReadout->ShowTake(mElapsed, mSession->FramesRecorded(), mDropped, mStartTimecode);
  mSignalPanel->SetStartTimecode(mStartTimecode);
  mSignalPanel->Refresh();
}

void CaptureWindow::ReadDiskAndMovie() {
  const CaptureSettings& settings = mSession->Settings();
  mReadout->ShowDiskTime(RecordingSecondsLeft(MoviePathShown(), settings), RecordingBytesPerSecond(settings));
  if (!mSession->Recording() || !mFollower) return;
  if (mFollower->Update() != 0) {
    mFollower.reset();  // it said why in one line; the final count is read at Stop
    return;
  }
  mDropped = static_cast<int64_t>(mFollower->Summary().EmptySlots());
}

std::string CaptureWindow::MoviePathShown() const {
  return mSession->Recording() ? mTakePath : mMoviePath->text().toStdString();
}

std::string CaptureWindow::ReadoutSnapshot() const {
  return mReadout->Snapshot() + mSignalPanel->Snapshot();
}

void CaptureWindow::ShowStatus(const std::string& text) {
  mReadout->ShowStatus(text);
}

bool CaptureWindow::ConfirmReplace(const std::string& path) {
  QMessageBox question(QMessageBox::Warning, "Replace the movie?",
                       QString::fromStdString(path) + " exists already.\nRecording now replaces it: what it holds is lost.",
                       QMessageBox::Yes | QMessageBox::No, this);
  question.setObjectName("replaceMovie");
  question.button(QMessageBox::Yes)->setText("Replace");
  question.button(QMessageBox::No)->setText("Keep it");
  question.setDefaultButton(QMessageBox::No);
  return question.exec() == QMessageBox::Yes;
}

void CaptureWindow::closeEvent(QCloseEvent* event) {
  mClosing = true;
  if (mSession->Recording()) EndTake(false);  // a window closing is not waited on for a check
  event->accept();
}

}  // namespace KTN
