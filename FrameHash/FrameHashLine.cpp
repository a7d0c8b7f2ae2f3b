// Writes and reads the data lines of a frame-hash sidecar.
#include "FrameHash/FrameHashLine.h"

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "Movie/MovieSidecars.h"

namespace KTN {

const char kFrameHashFormatLines[] = "#format: frame checksums\n#version: 2\n#hash: murmur3\n";
const char kFrameHashColumnsLine[] = "#stream#, dts,        pts, duration,     size, hash\n";

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// Reads one whole-number field that ends at ',' (spaces before it allowed); moves text past
// the comma and its space.
bool NumberField(const char*& text, const char* end, int64_t& value) {
  while (text < end && *text == ' ') ++text;
  const char* start = text;
  if (text < end && *text == '-') ++text;
  const char* digits = text;
  int64_t magnitude = 0;
  while (text < end && *text >= '0' && *text <= '9') {
    if (magnitude > (INT64_MAX - (*text - '0')) / 10) return false;
    magnitude = magnitude * 10 + (*text - '0');
    ++text;
  }
  if (text == digits || text >= end || *text != ',') return false;
  value = *start == '-' ? -magnitude : magnitude;
  ++text;
  return true;
}

}  // namespace

size_t FrameHashLine::Format(char* text) const {
  // FFmpeg's columns: the stream, then dts and pts ten wide, duration and size eight wide.
  int length = snprintf(text, kMaxText, "%d, %10" PRId64 ", %10" PRId64 ", %8" PRId64 ", %8" PRIu32 ", ", stream, dts,
                        pts, duration, size);
  size_t at = static_cast<size_t>(length);
  for (uint8_t byte : hash) {
    text[at++] = kHexDigits[byte >> 4];
    text[at++] = kHexDigits[byte & 15];
  }
  text[at++] = '\n';
  return at;
}

std::string FrameHashLine::Text() const {
  char text[kMaxText];
  return std::string(text, Format(text));
}

bool FrameHashLine::Parse(const char* text, size_t length) {
  const char* end = text + length;
  int64_t fields[5];
  for (int64_t& field : fields) {
    if (!NumberField(text, end, field)) return false;
  }
  if (fields[0] < 0 || fields[0] > 1000 || fields[4] < 0 || fields[4] > UINT32_MAX) return false;
  while (text < end && *text == ' ') ++text;
  if (end - text < static_cast<ptrdiff_t>(2 * kHashBytes)) return false;
  for (size_t i = 0; i < kHashBytes; ++i) {
    int high = HexValue(text[2 * i]), low = HexValue(text[2 * i + 1]);
    if (high < 0 || low < 0) return false;
    hash[i] = static_cast<uint8_t>(high << 4 | low);
  }
  text += 2 * kHashBytes;
  if (text < end && *text != ',') return false;  // side data may follow; the hash is whole
  stream = static_cast<int>(fields[0]);
  dts = fields[1];
  pts = fields[2];
  duration = fields[3];
  size = static_cast<uint32_t>(fields[4]);
  return true;
}

std::string FrameHashStreamLines(int stream, int timeBaseNum, int timeBaseDen, bool picture) {
  const std::string n = std::to_string(stream);
  return "#tb " + n + ": " + std::to_string(timeBaseNum) + "/" + std::to_string(timeBaseDen) + "\n#media_type " + n +
         ": " + (picture ? "video" : "audio") + "\n";
}

std::string FrameHashSidecarPath(const std::string& moviePath) {
  return MovieSidecars::FrameHashes(moviePath);
}

}  // namespace KTN
