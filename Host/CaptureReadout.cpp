// The capture window's readout.
#include "Host/CaptureReadout.h"

#include <stdio.h>

#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

#include "Host/DurationText.h"
#include "Host/SettingsDescription.h"

namespace KTN {

namespace {

// A caption and its value in the take's row; the value is returned.
QLabel* AddFigure(QHBoxLayout* row, QWidget* parent, const char* caption, const char* name) {
  QLabel* captionLabel = new QLabel(QString::fromLatin1(caption), parent);
  QLabel* value = new QLabel(parent);
  value->setObjectName(QString::fromLatin1(name));
  QFont bold = value->font();
  bold.setBold(true);
  value->setFont(bold);
  // Digits that change four times a second must not push their neighbours about.
  value->setMinimumWidth(value->fontMetrics().horizontalAdvance(QStringLiteral("00:00:00:00")));
  row->addWidget(captionLabel);
  row->addWidget(value);
  row->addSpacing(12);
  return value;
}

std::string Text(const QLabel* label) {
  return label->text().toStdString();
}

}  // namespace

CaptureReadout::CaptureReadout(QWidget* parent) : QWidget(parent) {
  QVBoxLayout* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  QHBoxLayout* top = new QHBoxLayout();
  mSettings = new QLabel(this);
  mSettings->setObjectName("settings");
  mDisk = new QLabel(this);
  mDisk->setObjectName("disk");
  mDisk->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
  top->addWidget(mSettings, 1);
  top->addWidget(mDisk);
  layout->addLayout(top);

  mStatus = new QLabel("Not recording", this);
  mStatus->setObjectName("status");
  layout->addWidget(mStatus);

  mNote = new QLabel(this);
  mNote->setObjectName("note");
  mNote->setWordWrap(true);
  mNote->hide();
  layout->addWidget(mNote);

  mVerification = new QLabel(this);
  mVerification->setObjectName("verify");
  mVerification->setWordWrap(true);
  mVerification->hide();
  layout->addWidget(mVerification);

  mTake = new QWidget(this);
  QHBoxLayout* take = new QHBoxLayout(mTake);
  take->setContentsMargins(0, 0, 0, 0);
  mElapsed = AddFigure(take, mTake, "Elapsed", "elapsed");
  mFrames = AddFigure(take, mTake, "Frames", "frames");
  mDropped = AddFigure(take, mTake, "Dropped", "dropped");
  mStart = AddFigure(take, mTake, "Start", "start");
  take->addStretch(1);
  // Its room is kept before the first take, so that the preview does not change size when
  // the figures appear.
  QSizePolicy keep = mTake->sizePolicy();
  keep.setRetainSizeWhenHidden(true);
  mTake->setSizePolicy(keep);
  mTake->hide();
  layout->addWidget(mTake);
}

void CaptureReadout::ShowSettings(const CaptureSettings& settings) {
  mSettings->setText(QString::fromStdString(SettingsDescription(settings)));
}

void CaptureReadout::ShowDiskTime(double secondsLeft, double bytesPerSecond) {
  if (secondsLeft < 0) {
    mDisk->setText("Disk: free space unknown");
    Warn(mDisk, false);
    return;
  }
  char rate[32];
  snprintf(rate, sizeof rate, "%.1f MB/s", bytesPerSecond / 1e6);
  const bool shortDisk = secondsLeft < kShortDiskSeconds;
  std::string text = "Disk: " + DiskTimeText(secondsLeft) + " left at " + rate;
  if (shortDisk) text += " (WARNING: under 5 minutes)";
  mDisk->setText(QString::fromStdString(text));
  Warn(mDisk, shortDisk);
}

void CaptureReadout::ShowStatus(const std::string& text) {
  mStatus->setText(QString::fromStdString(text));
}

void CaptureReadout::ShowNote(const std::string& text) {
  mNote->setText(QString::fromStdString(text));
  Warn(mNote, true);
  mNote->setVisible(!text.empty());
}

void CaptureReadout::ShowVerification(const std::string& text, bool warning) {
  mVerification->setText(QString::fromStdString(text));
  Warn(mVerification, warning);
  mVerification->setVisible(!text.empty());
}

void CaptureReadout::ShowTake(double elapsedSeconds, int64_t frames, int64_t droppedFrames, const std::string& startTimecode) {
  mElapsed->setText(QString::fromStdString(ElapsedText(elapsedSeconds)));
  mFrames->setText(QString::number(static_cast<qlonglong>(frames)));
  mDropped->setText(QString::number(static_cast<qlonglong>(droppedFrames)));
  Warn(mDropped, droppedFrames > 0);
  mStart->setText(startTimecode.empty() ? QStringLiteral("--:--:--:--") : QString::fromStdString(startTimecode));
  mTake->show();
}

void CaptureReadout::Warn(QLabel* label, bool warning) {
  if (!warning) {
    label->setPalette(QPalette());  // nothing of its own: the window's colours again
    return;
  }
  const bool dark = palette().color(QPalette::Window).lightness() < 128;
  QPalette red = label->palette();
  red.setColor(QPalette::WindowText, dark ? QColor(255, 96, 96) : QColor(190, 0, 0));
  label->setPalette(red);
}

std::string CaptureReadout::Snapshot() const {
  std::string lines = "settings: " + Text(mSettings) + "\n";
  lines += "disk: " + Text(mDisk) + "\n";
  lines += "disk colour: " + mDisk->palette().color(QPalette::WindowText).name().toStdString() + "\n";
  lines += "status: " + Text(mStatus) + "\n";
  if (mNote->isVisibleTo(this)) {
    lines += "note: " + Text(mNote) + "\n";
    lines += "note colour: " + mNote->palette().color(QPalette::WindowText).name().toStdString() + "\n";
  }
  if (mVerification->isVisibleTo(this)) {
    lines += "verify: " + Text(mVerification) + "\n";
    lines += "verify colour: " + mVerification->palette().color(QPalette::WindowText).name().toStdString() + "\n";
  }
  if (mTake->isVisibleTo(this)) {
    lines += "elapsed: " + Text(mElapsed) + "\n";
    lines += "frames: " + Text(mFrames) + "\n";
    lines += "dropped: " + Text(mDropped) + "\n";
    lines += "dropped colour: " + mDropped->palette().color(QPalette::WindowText).name().toStdString() + "\n";
    lines += "start: " + Text(mStart) + "\n";
  }
  return lines;
}

}  // namespace KTN
