// Small pictures of a take's frame slots, decoded from the movie with FFmpeg, for its report.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>

#include <QImage>

struct AVCodecContext;
struct AVFormatContext;
struct SwsContext;

namespace KTN {

// Opens the movie once and decodes the picture a slot shows: the one whose time span holds
// the slot's start (a dropped slot shows the picture before it, as players do), scaled to a
// given width as RGB, keeping the picture's display aspect. Owns its FFmpeg contexts; one
// thread at a time.
class EventThumbnails {
 public:
  EventThumbnails();
  ~EventThumbnails();
  EventThumbnails(const EventThumbnails&) = delete;
  EventThumbnails& operator=(const EventThumbnails&) = delete;

  // moviePath: a finished movie whose slots last frameDuration / timescale seconds. 0, or
  // errno with one failure line (no such movie, no picture track, no decoder).
  long Open(const std::string& moviePath, uint32_t frameDuration, uint32_t timescale);
  // Slot's picture width pixels wide (RGB888); a null image, with one failure line, when it
  // cannot be read or decoded.
  QImage At(int64_t slot, int width);

 private:
  AVFormatContext* mFormat = nullptr;
  AVCodecContext* mDecoder = nullptr;
  SwsContext* mScaler = nullptr;
  int mStream = -1;
  uint32_t mFrameDuration = 0;
  uint32_t mTimescale = 0;
};

}  // namespace KTN
