// A take's report drawn with QPainter on a QImage and saved as PNG.
#include "Host/ReportPicture.h"

#include <errno.h>
#include <fcntl.h>
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <vector>

#include <QFile>
#include <QFileInfo>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QPainter>

#include "Host/EventThumbnails.h"
#include "Host/LiveSignal.h"
#include "Host/TakeReport.h"
#include "Movie/MovieLock.h"

namespace KTN {

namespace {

const QColor kBackground(0xf4, 0xf4, 0xf2);
const QColor kStripBackground(0xff, 0xff, 0xff);
const QColor kFrame(0xb0, 0xb0, 0xb0);
const QColor kText(0x20, 0x20, 0x20);
const QColor kPeak(0x9c, 0xd6, 0x9c);
const QColor kRms(0x2f, 0x8f, 0x3f);
const QColor kLumaBand(0xc4, 0xcc, 0xdc);
const QColor kLumaMean(0x30, 0x40, 0x70);

constexpr int kCaptionHeight = 28;  // two lines: the timecode, then what happened
constexpr int kThumbnailGap = 8;

// A level's height in a strip: -60 dBFS and below at the bottom, 0 dBFS at the top.
int LevelHeight(float db, int height) {
  return static_cast<int>(LiveSignal::LevelShare(db) * static_cast<float>(height) + 0.5f);
}

// The plot's columns: the slotCount each pixel column spans, as a half-open range.
struct Columns {
  int64_t slotCount;
  int ColumnOf(int64_t slot) const {
    return std::clamp(ReportPicture::SlotX(slot, slotCount) - ReportPicture::kPlotLeft, 0,
                      ReportPicture::kPlotRight - ReportPicture::kPlotLeft - 1);
  }
  // The columns of slot's span, [first, last].
  void Span(int64_t slot, int* first, int* last) const {
    *first = ColumnOf(slot);
    *last = std::max(*first, ReportPicture::SlotX(slot + 1, slotCount) - ReportPicture::kPlotLeft - 1);
    *last = std::min(*last, ReportPicture::kPlotRight - ReportPicture::kPlotLeft - 1);
  }
};

void DrawStripFrame(QPainter& painter, int top, int height, const QString& name, const QString& topLabel,
                    const QString& bottomLabel) {
  const QRect strip(ReportPicture::kPlotLeft, top, ReportPicture::kPlotRight - ReportPicture::kPlotLeft, height);
  painter.fillRect(strip, kStripBackground);
  painter.setPen(kText);
  painter.drawText(QRect(8, top, ReportPicture::kPlotLeft - 44, height), Qt::AlignLeft | Qt::AlignVCenter, name);
  QFont small = painter.font();
  small.setPixelSize(9);
  painter.save();
  painter.setFont(small);
  painter.drawText(QRect(ReportPicture::kPlotLeft - 40, top, 36, 12), Qt::AlignRight | Qt::AlignTop, topLabel);
  painter.drawText(QRect(ReportPicture::kPlotLeft - 40, top + height - 12, 36, 12), Qt::AlignRight | Qt::AlignBottom,
                   bottomLabel);
  painter.restore();
}

void DrawChannel(QPainter& painter, const TakeReport& report, size_t channel, const Columns& columns) {
  const int top = ReportPicture::StripTop(static_cast<int>(channel));
  const int height = ReportPicture::kStripHeight;
  DrawStripFrame(painter, top, height, QString("Channel %1").arg(channel + 1), "0 dB", "-60");
  const int width = ReportPicture::kPlotRight - ReportPicture::kPlotLeft;
  std::vector<float> peak(static_cast<size_t>(width), -std::numeric_limits<float>::infinity());
  std::vector<float> rms(peak);
  for (const SoundLevels& sound : report.sounds) {
    if (channel >= sound.peakDb.size() || channel >= sound.rmsDb.size()) continue;
    int first = 0, last = 0;
    columns.Span(sound.slot, &first, &last);
    for (int x = first; x <= last; ++x) {
      peak[static_cast<size_t>(x)] = std::max(peak[static_cast<size_t>(x)], sound.peakDb[channel]);
      rms[static_cast<size_t>(x)] = std::max(rms[static_cast<size_t>(x)], sound.rmsDb[channel]);
    }
  }
  const int bottom = top + height;
  for (int x = 0; x < width; ++x) {
    const int px = ReportPicture::kPlotLeft + x;
    const int p = LevelHeight(peak[static_cast<size_t>(x)], height);
    const int r = LevelHeight(rms[static_cast<size_t>(x)], height);
    if (p) painter.fillRect(px, bottom - p, 1, p, kPeak);
    if (r) painter.fillRect(px, bottom - r, 1, r, kRms);
  }
  // -20 dBFS, the usual alignment level, as a faint line.
  painter.setPen(QColor(0xe0, 0xa0, 0x40));
  const int at = bottom - LevelHeight(-20, height);
  painter.drawLine(ReportPicture::kPlotLeft, at, ReportPicture::kPlotRight - 1, at);
}

void DrawLuma(QPainter& painter, const TakeReport& report, int channels, const Columns& columns) {
  const int top = ReportPicture::LumaTop(channels);
  const int height = ReportPicture::kLumaHeight;
  DrawStripFrame(painter, top, height, "Luma", "100%", "0%");
  const int width = ReportPicture::kPlotRight - ReportPicture::kPlotLeft;
  struct Column {
    float minimum = 1000, maximum = -1000;
    double sum = 0;
    int count = 0;
  };
  std::vector<Column> column(static_cast<size_t>(width));
  for (const PictureLevels& picture : report.pictures) {
    int first = 0, last = 0;
    columns.Span(picture.slot, &first, &last);
    for (int x = first; x <= last; ++x) {
      Column& c = column[static_cast<size_t>(x)];
      c.minimum = std::min(c.minimum, picture.minimum);
      c.maximum = std::max(c.maximum, picture.maximum);
      c.sum += picture.mean;
      ++c.count;
    }
  }
  const int bottom = top + height;
  auto y = [&](double percent) { return bottom - static_cast<int>(std::clamp(percent, 0.0, 100.0) * (height - 1) / 100.0 + 0.5); };
  for (int x = 0; x < width; ++x) {
    const Column& c = column[static_cast<size_t>(x)];
    if (!c.count) continue;
    const int px = ReportPicture::kPlotLeft + x;
    const int high = y(c.maximum), low = y(c.minimum);
    painter.fillRect(px, high, 1, std::max(1, low - high), kLumaBand);
    painter.fillRect(px, y(c.sum / c.count) - 1, 1, 2, kLumaMean);
  }
}

}  // namespace

QRgb ReportPicture::KindColour(SignalEvent::Kind kind) {
  switch (kind) {
    case SignalEvent::Kind::kBlack: return qRgb(0x40, 0x40, 0x40);
    case SignalEvent::Kind::kFreeze: return qRgb(0x1f, 0x77, 0xb4);
    case SignalEvent::Kind::kSilence: return qRgb(0x94, 0x67, 0xbd);
    case SignalEvent::Kind::kClipping: return qRgb(0xd6, 0x27, 0x28);
    case SignalEvent::Kind::kDropped: return qRgb(0xff, 0x7f, 0x0e);
    case SignalEvent::Kind::kTimecodeBreak: return qRgb(0x2c, 0xa0, 0x2c);
  }
  return qRgb(0, 0, 0);
}

QImage ReportPicture::Draw(const TakeReport& report) {
  const int channels = static_cast<int>(report.channels.size());
  const int64_t slotCount = report.Slots();
  const Columns columns{slotCount};

  // The thumbnails first: their rows decide the picture's height.
  EventThumbnails decoder;
  const bool decoding = decoder.Open(report.moviePath, report.summary.frameDuration, report.summary.videoTimescale) == 0;
  struct Placed {
    size_t event;
    QImage image;
    QRect at;
  };
  std::vector<Placed> placed;
  int rowHeight = 0, row = 0, right = 0;
  const size_t shown = std::min(report.events.size(), static_cast<size_t>(kMostThumbnails));
  std::vector<QImage> images;
  for (size_t e = 0; e < shown; ++e) {
    QImage image = decoding ? decoder.At(report.events[e].event.slot, kThumbnailWidth) : QImage();
    rowHeight = std::max(rowHeight, image.isNull() ? kThumbnailWidth * 9 / 16 : image.height());
    images.push_back(image);
  }
  rowHeight += kCaptionHeight + kThumbnailGap;
  for (size_t e = 0; e < shown; ++e) {
    // Under its tick where there is room, else right of the one before, else a row below.
    const int tick = SlotX(report.events[e].event.slot, slotCount);
    int left = std::clamp(tick - kThumbnailWidth / 2, 4, kWidth - kThumbnailWidth - 4);
    if (e > 0 && left < right + kThumbnailGap) left = right + kThumbnailGap;
    if (left > kWidth - kThumbnailWidth - 4) {
      ++row;
      left = std::clamp(tick - kThumbnailWidth / 2, 4, kWidth - kThumbnailWidth - 4);
    }
    const int height = images[e].isNull() ? kThumbnailWidth * 9 / 16 : images[e].height();
    placed.push_back({e, images[e], QRect(left, ThumbnailTop(channels) + row * rowHeight, kThumbnailWidth, height)});
    right = left + kThumbnailWidth;
  }
  const int rows = placed.empty() ? 0 : row + 1;
  const int height = ThumbnailTop(channels) + rows * rowHeight + 24;

  QImage image(kWidth, height, QImage::Format_RGB32);
  image.fill(kBackground);
  QPainter painter(&image);
  QFont font = painter.font();
  font.setPixelSize(12);
  painter.setFont(font);

  // The title band.
  painter.setPen(kText);
  QFont bold = font;
  bold.setBold(true);
  bold.setPixelSize(14);
  painter.setFont(bold);
  painter.drawText(QRect(8, 4, kWidth - 16, 20), Qt::AlignLeft | Qt::AlignVCenter,
                   QFileInfo(QString::fromStdString(report.moviePath)).fileName());
  painter.setFont(font);
  QString facts =
      QString("%1 slots at %2 fps").arg(report.summary.pictureSlots).arg(report.summary.PictureRate(), 0, 'g', 5);
  if (report.summary.hasTimecode) facts += QString(", from %1").arg(QString::fromStdString(report.summary.startTimecode));
  facts += QString(" | %1 pictures, %2 dropped | ").arg(report.summary.pictures).arg(report.summary.EmptySlots());
  facts += report.eventsThere ? QString("%1 events").arg(report.events.size()) : QString("events not recorded");
  facts += " | " + QString::fromStdString(report.VerifyLine());
  if (!report.levelsThere) facts += " | levels not recorded";
  painter.drawText(QRect(8, 24, kWidth - 16, 16), Qt::AlignLeft | Qt::AlignVCenter, facts);

  for (int c = 0; c < channels; ++c) DrawChannel(painter, report, static_cast<size_t>(c), columns);
  DrawLuma(painter, report, channels, columns);
  const int lane = MarkerLaneTop(channels);
  painter.fillRect(QRect(kPlotLeft, lane, kPlotRight - kPlotLeft, kMarkerLaneHeight), kStripBackground);
  painter.setPen(kText);
  painter.drawText(QRect(8, lane, kPlotLeft - 16, kMarkerLaneHeight), Qt::AlignLeft | Qt::AlignVCenter, "Events");

  // Each event: its span shaded and a line across the strips, its tick and label in the lane.
  QFont label = font;
  label.setPixelSize(10);
  for (size_t e = 0; e < report.events.size(); ++e) {
    const SignalEvent& event = report.events[e].event;
    const QColor colour = QColor::fromRgb(KindColour(event.kind));
    const int x = SlotX(event.slot, slotCount);
    const int end = std::max(x + 1, SlotX(event.slot + std::max<int64_t>(event.frames, 1), slotCount));
    QColor shade = colour;
    shade.setAlpha(40);
    painter.fillRect(QRect(x, StripTop(0), std::min(end, kPlotRight) - x, lane - StripTop(0) - kLaneGap), shade);
    painter.setPen(colour);
    painter.drawLine(x, StripTop(0), x, lane - 1);
    painter.fillRect(QRect(x - kTickWidth / 2, lane, kTickWidth, kMarkerLaneHeight), colour);
    painter.setFont(label);
    painter.drawText(QRect(x + kTickWidth, lane + 2 + static_cast<int>(e % 3) * 12, 160, 12),
                     Qt::AlignLeft | Qt::AlignVCenter,
                     event.channel > 0 ? QString("%1 ch %2").arg(SignalEvent::KindName(event.kind)).arg(event.channel)
                                       : QString(SignalEvent::KindName(event.kind)));
  }
  painter.setFont(font);

  // The thumbnails, each joined to its tick.
  for (const Placed& p : placed) {
    const TakeReport::Event& event = report.events[p.event];
    const QColor colour = QColor::fromRgb(KindColour(event.event.kind));
    const int tick = SlotX(event.event.slot, slotCount);
    painter.setPen(QPen(colour, 1));
    painter.drawLine(tick, lane + kMarkerLaneHeight, p.at.center().x(), p.at.top() - 1);
    if (p.image.isNull()) {
      painter.fillRect(p.at, QColor(0xd0, 0xd0, 0xd0));
    } else {
      painter.drawImage(p.at.topLeft(), p.image);
    }
    painter.setPen(QPen(colour, 2));
    painter.drawRect(p.at.adjusted(-1, -1, 0, 0));
    painter.setPen(kText);
    painter.setFont(label);
    const QString when = QString::fromStdString(LiveSignal::EventWhen(event.timecode, event.event.slot));
    const QFontMetrics metrics(label);
    painter.drawText(QRect(p.at.left(), p.at.bottom() + 2, kThumbnailWidth, 13), Qt::AlignLeft | Qt::AlignVCenter, when);
    painter.drawText(QRect(p.at.left(), p.at.bottom() + 15, kThumbnailWidth, 13), Qt::AlignLeft | Qt::AlignVCenter,
                     metrics.elidedText(QString::fromStdString(event.event.Sentence()), Qt::ElideRight, kThumbnailWidth));
  }
  if (report.events.size() > shown) {
    painter.setFont(font);
    painter.drawText(QRect(8, height - 20, kWidth - 16, 16), Qt::AlignLeft | Qt::AlignVCenter,
                     QString("%1 more events, without pictures").arg(report.events.size() - shown));
  }
  painter.end();
  return image;
}

long ReportPicture::Write(const TakeReport& report, const std::string& path, std::string* problem) {
  // Fonts need a QGuiApplication; the capture window has its own, the command line gets one
  // on the platform that needs no display.
  std::unique_ptr<QGuiApplication> application;
  static int argc = 3;
  static char name[] = "kestrin-capture", option[] = "-platform", platform[] = "offscreen";
  static char* argv[] = {name, option, platform, nullptr};
  if (!QCoreApplication::instance()) {
    // Its notes on the environment (no runtime folder, no session) are not the user's concern.
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& message) {
      if (type == QtCriticalMsg || type == QtFatalMsg) fprintf(stderr, "kestrin-capture: %s\n", qPrintable(message));
    });
    application.reset(new QGuiApplication(argc, argv));
  }
  const QImage image = Draw(report);
  // Only a regular file is written: a FIFO or a device there is refused without opening it.
  // The PNG goes into the file opened here, not into whatever the name leads to later.
  long error = 0;
  bool made = true;
  int fd = MovieLock::OpenRegular(path, O_WRONLY | O_CREAT | O_EXCL, error, false);
  if (fd < 0 && error == EEXIST) {
    made = false;
    fd = MovieLock::OpenRegular(path, O_WRONLY | O_CREAT, error, false);
  }
  if (fd < 0) {
    *problem = "cannot write the report " + path + ": " + (error == EINVAL ? "it is not a regular file" : strerror(static_cast<int>(error)));
    return error;
  }
  if (ftruncate(fd, 0) != 0) {
    error = errno;
    close(fd);
    *problem = "cannot write the report " + path + ": " + strerror(static_cast<int>(error));
    return error;
  }
  QFile file;
  bool saved = false;
  if (file.open(fd, QIODevice::WriteOnly, QFileDevice::AutoCloseHandle)) {
    saved = image.save(&file, "PNG") && file.flush();
    file.close();
  } else {
    close(fd);
  }
  if (!saved) {
    // A file made for this picture goes again rather than staying behind empty or cut short.
    if (made) unlink(path.c_str());
    *problem = "cannot write the report " + path + ": the PNG could not be saved there";
    return EIO;
  }
  return 0;
}

}  // namespace KTN
