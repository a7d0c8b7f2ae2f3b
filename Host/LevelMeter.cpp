// One sound channel's level meter in the capture window.
#include "Host/LevelMeter.h"

#include <cmath>
#include <limits>

#include <QPainter>

#include "Host/LiveSignal.h"

namespace KTN {

namespace {

constexpr int kScaleWidth = 22;   // the tick labels left of the bar
constexpr int kBarWidth = 14;
constexpr int kLabelHeight = 16;  // the channel's number under the bar
constexpr int kMargin = 6;        // above the top tick, so its label is whole

}  // namespace

LevelMeter::LevelMeter(int channel, QWidget* parent) : QWidget(parent), mChannel(channel) {
  setObjectName(QStringLiteral("levelMeter%1").arg(channel));
  setToolTip(QStringLiteral("Channel %1: peak level in dBFS").arg(channel));
}

QSize LevelMeter::sizeHint() const {
  return QSize(kScaleWidth + kBarWidth + 6, 130);
}

QSize LevelMeter::minimumSizeHint() const {
  return QSize(kScaleWidth + kBarWidth + 6, 80);
}

void LevelMeter::ShowPeak(float peakDb, std::chrono::steady_clock::time_point now) {
  if (std::isnan(peakDb)) peakDb = -std::numeric_limits<float>::infinity();
  mPeakDb = peakDb;
  if (!mMeasured || peakDb >= mHoldDb || now - mHeldSince >= kHold) {
    mHoldDb = peakDb;
    mHeldSince = now;
  }
  if (peakDb >= kFullScaleDb) {
    mFullScale = true;
    mFullScaleSince = now;
  } else if (mFullScale && now - mFullScaleSince >= kHold) {
    mFullScale = false;
  }
  mMeasured = true;
  update();
}

void LevelMeter::Clear() {
  mMeasured = false;
  mFullScale = false;
  update();
}

std::string LevelMeter::Snapshot() const {
  if (!mMeasured) return "no level";
  std::string text = "peak " + LiveSignal::DbText(mPeakDb) + ", hold " + LiveSignal::DbText(mHoldDb);
  if (mFullScale) text += ", full scale";
  return text;
}

int LevelMeter::LevelY(float dB, const QRect& bar) const {
  return bar.bottom() + 1 - static_cast<int>(std::lround(LiveSignal::LevelShare(dB) * bar.height()));
}

void LevelMeter::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  const QColor text = palette().color(QPalette::WindowText);
  const QRect bar(kScaleWidth, kMargin, kBarWidth, height() - kMargin - kLabelHeight - 2);
  painter.fillRect(bar, QColor(24, 24, 24));

  // The scale: a tick every 6 dB, labelled every 12.
  QFont small = font();
  small.setPointSizeF(std::max(6.0, small.pointSizeF() * 0.7));
  painter.setFont(small);
  for (int dB = 0; dB >= static_cast<int>(LiveSignal::kFloorDb); dB -= 6) {
    const int y = LevelY(static_cast<float>(dB), bar);
    painter.setPen(text);
    painter.drawLine(bar.left() - 4, y, bar.left() - 1, y);
    if (dB % 12 == 0) {
      painter.drawText(QRect(0, y - 6, kScaleWidth - 5, 12), Qt::AlignRight | Qt::AlignVCenter, QString::number(dB));
    }
  }

  if (mMeasured) {
    // Green up to -18 dBFS, yellow to -6, red above; the whole top red while at full scale.
    const int top = LevelY(mPeakDb, bar);
    struct Zone {
      float from, to;
      QColor colour;
    } zones[] = {{LiveSignal::kFloorDb, -18.0f, QColor(40, 200, 60)}, {-18.0f, -6.0f, QColor(230, 200, 40)}, {-6.0f, 0.0f, QColor(230, 50, 40)}};
    for (const Zone& zone : zones) {
      const int zoneTop = std::max(top, LevelY(zone.to, bar));
      const int zoneBottom = LevelY(zone.from, bar);
      if (zoneTop < zoneBottom) painter.fillRect(QRect(bar.left(), zoneTop, bar.width(), zoneBottom - zoneTop), zone.colour);
    }
    if (mFullScale) painter.fillRect(QRect(bar.left(), bar.top(), bar.width(), 5), QColor(255, 0, 0));
    const int hold = LevelY(mHoldDb, bar);
    if (hold <= bar.bottom()) {
      painter.fillRect(QRect(bar.left(), std::max(bar.top(), hold - 1), bar.width(), 2),
                       mFullScale ? QColor(255, 0, 0) : QColor(240, 240, 240));
    }
  }

  painter.setPen(text);
  painter.setFont(font());
  painter.drawText(QRect(bar.left() - 6, bar.bottom() + 2, bar.width() + 12, kLabelHeight), Qt::AlignCenter,
                   QString::number(mChannel));
}

}  // namespace KTN
