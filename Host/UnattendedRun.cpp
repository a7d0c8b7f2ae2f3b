// An unattended run of the capture window.
#include "Host/UnattendedRun.h"

#include <stdio.h>

#include <utility>

#include <QApplication>
#include <QAbstractButton>
#include <QImage>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include "Host/CaptureWindow.h"

namespace KTN {

UnattendedRun::UnattendedRun(CaptureWindow& window, int64_t frames, std::string labelsPath, std::string recordingShot,
                             std::string windowShot, int& status)
    : QObject(&window), mWindow(window), mFrames(frames), mLabelsPath(std::move(labelsPath)),
      mRecordingShot(std::move(recordingShot)), mWindowShot(std::move(windowShot)), mStatus(status) {
  mClock.start();
  // Ten looks a second: the window refreshes its labels four times a second, so none of
  // their states is missed, and the clicks come at about the moment they are due.
  QTimer* poll = new QTimer(this);
  poll->setInterval(100);
  connect(poll, &QTimer::timeout, this, [this] { Poll(); });
  poll->start();
  // A question asks while a click of Poll's waits for its answer, and a timer is not run
  // again before its last run has returned: questions have a timer of their own.
  QTimer* questions = new QTimer(this);
  questions->setInterval(100);
  connect(questions, &QTimer::timeout, this, [this] { AnswerQuestions(); });
  questions->start();
  connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { Finish(); });
}

void UnattendedRun::AnswerQuestions() {
  for (QWidget* widget : QApplication::topLevelWidgets()) {
    QMessageBox* question = qobject_cast<QMessageBox*>(widget);
    if (!question || !question->isVisible()) continue;
    AppendLabels("question: " + question->text().replace('\n', ' ').toStdString() + "\n");
    if (QAbstractButton* keep = question->button(QMessageBox::No)) {
      keep->click();
    } else {
      question->reject();
    }
  }
}

void UnattendedRun::Poll() {
  WriteLabels();
  if (mFrames <= 0) return;
  if (mState == State::kIdle && mClock.elapsed() >= 1000) {
    mState = State::kRecording;
    Click("recordButton");
    if (!mWindow.Recording()) {
      fprintf(stderr, "kestrin-capture: the recording did not start\n");
      mStatus = 4;
      mState = State::kDone;
      QApplication::quit();
    }
    return;
  }
  if (mState != State::kRecording) return;
  if (mWindow.Recording() && mWindow.Frames() >= mFrames) {
    WriteLabels();
    if (!mRecordingShot.empty()) SaveWindow(mRecordingShot);
    Click("stopButton");
  }
  if (!mWindow.Recording() && !mWindow.Finishing()) {
    mState = State::kDone;
    QApplication::quit();
  }
}

void UnattendedRun::Click(const char* name) {
  if (QPushButton* button = mWindow.findChild<QPushButton*>(name)) {
    button->click();
  } else {
    fprintf(stderr, "kestrin-capture: the window has no %s\n", name);
    mStatus = 4;
  }
}

void UnattendedRun::WriteLabels() {
  if (mLabelsPath.empty()) return;
  std::string texts = mWindow.ReadoutSnapshot();
  if (texts == mLastTexts) return;
  mLastTexts = texts;
  char heading[64];
  snprintf(heading, sizeof heading, "snapshot %.2f %s\n", mClock.elapsed() / 1000.0, mWindow.Recording() ? "recording" : "idle");
  AppendLabels(heading + texts + "\n");
}

void UnattendedRun::AppendLabels(const std::string& text) {
  if (mLabelsPath.empty()) return;
  FILE* file = fopen(mLabelsPath.c_str(), "a");
  if (!file) {
    fprintf(stderr, "kestrin-capture: cannot write the labels to %s\n", mLabelsPath.c_str());
    mStatus = 4;
    mLabelsPath.clear();
    return;
  }
  fputs(text.c_str(), file);
  fclose(file);
}

void UnattendedRun::SaveWindow(const std::string& path) {
  if (mWindow.grab().save(QString::fromStdString(path))) return;
  fprintf(stderr, "kestrin-capture: cannot save the window to %s\n", path.c_str());
  mStatus = 4;
}

void UnattendedRun::Finish() {
  WriteLabels();
  if (!mWindowShot.empty()) SaveWindow(mWindowShot);
}

}  // namespace KTN
