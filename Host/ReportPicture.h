// A take's report drawn as one picture: its levels and luma over the take's timeline, its events marked, each with its picture.
#pragma once

#include <stdint.h>

#include <string>

#include <QImage>
#include <QRgb>

#include "Signal/SignalEvent.h"

namespace KTN {

struct TakeReport;

// The picture, from top to bottom (y in pixels from the top, x proportional to the slot):
//   a title band (kTitleHeight): the movie's name, slots, rate, start timecode, verify;
//   one strip per sound channel (kStripHeight each, kLaneGap apart): the slots' peak level
//     from -60 dBFS (strip bottom) to 0 dBFS (top), light, and their RMS over it, darker;
//   the luma strip (kLumaHeight): each picture's minimum..maximum band and its mean, 0% video
//     black at the bottom to 100% white at the top;
//   the marker lane (kMarkerLaneHeight): a tick kTickWidth wide in its kind's colour
//     (KindColour) at each event's first slot, filling the lane's height, labelled by kind
//     (and channel);
//     the same slot has a thin line of that colour across the strips above, and the event's
//     span is shaded there;
//   the thumbnails (from ThumbnailTop): each event's first picture, kThumbnailWidth wide,
//     with its timecode under it, joined to its tick by a line; at most kMostThumbnails.
// A slot starts at SlotX(slot, slots); the plot spans kPlotLeft..kPlotRight, the names of the
// strips lie left of it. Drawing needs a QGuiApplication (fonts); Write makes one on the
// "offscreen" platform when the process has none, and must then be called on the main
// thread. With the application there, any thread (the capture window draws on its own,
// which the application outlives).
class ReportPicture {
 public:
  static constexpr int kWidth = 1200;
  static constexpr int kPlotLeft = 140;
  static constexpr int kPlotRight = 1180;
  static constexpr int kTitleHeight = 44;
  static constexpr int kStripHeight = 56;
  static constexpr int kLumaHeight = 80;
  static constexpr int kMarkerLaneHeight = 40;
  static constexpr int kLaneGap = 6;
  static constexpr int kTickWidth = 3;
  static constexpr int kLinkGap = 28;  // between the marker lane and the thumbnails
  static constexpr int kThumbnailWidth = 160;
  static constexpr int kMostThumbnails = 24;

  // The x of slot's start, of a take of slotCount slots.
  static int SlotX(int64_t slot, int64_t slotCount) {
    return kPlotLeft + static_cast<int>(slot * (kPlotRight - kPlotLeft) / (slotCount > 0 ? slotCount : 1));
  }
  // The tops of the lanes of a take with channels sound channels.
  static int StripTop(int channel) { return kTitleHeight + channel * (kStripHeight + kLaneGap); }
  static int LumaTop(int channels) { return StripTop(channels); }
  static int MarkerLaneTop(int channels) { return LumaTop(channels) + kLumaHeight + kLaneGap; }
  static int ThumbnailTop(int channels) { return MarkerLaneTop(channels) + kMarkerLaneHeight + kLinkGap; }
  // The colour of an event's kind, opaque.
  static QRgb KindColour(SignalEvent::Kind kind);

  // The report drawn; thumbnails decoded from its movie (an event whose picture cannot be
  // read keeps its place, empty).
  static QImage Draw(const TakeReport& report);
  // Draws the report and saves it as PNG at path: 0, or errno with *problem in the user's
  // words.
  static long Write(const TakeReport& report, const std::string& path, std::string* problem);
};

}  // namespace KTN
