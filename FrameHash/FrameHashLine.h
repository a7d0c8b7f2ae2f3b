// One line of a frame-hash sidecar: a packet's stream, times, size and murmur3 hash, as FFmpeg's framehash format (version 2) writes it.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <array>
#include <string>

namespace KTN {

// The sidecar of a movie lies beside it: take.mov's is take.mov.framehash. It holds one line
// per packet of the movie's picture and sound streams, exactly as
//   ffmpeg -i MOVIE -map 0:v -map 0:a -c copy -f framehash -hash murmur3 -
// prints them for the finished movie, so that any FFmpeg can check a take, and lines
// starting with '#' that describe the streams. Streams are numbered as that command numbers
// them: the pictures 0, the sound the next (0 when the movie has no pictures). Times are in
// each stream's own timescale (its track's).
struct FrameHashLine {
  static constexpr size_t kHashBytes = 16;  // murmur3's 128 bits

  int stream = 0;
  int64_t dts = 0;
  int64_t pts = 0;
  int64_t duration = 0;
  uint32_t size = 0;  // bytes
  std::array<uint8_t, kHashBytes> hash = {};

  // The longest line Format writes, its line feed included.
  static constexpr size_t kMaxText = 128;
  // Writes the line, ending in a line feed, into text (kMaxText bytes at least); its length.
  size_t Format(char* text) const;
  std::string Text() const;
  // Reads a data line (without its line feed); false for anything else, '#' lines included.
  // Fields FFmpeg adds after the hash (a packet's side data) are passed over.
  bool Parse(const char* text, size_t length);

  bool operator==(const FrameHashLine& other) const {
    return stream == other.stream && dts == other.dts && pts == other.pts && duration == other.duration &&
           size == other.size && hash == other.hash;
  }
  bool operator!=(const FrameHashLine& other) const { return !(*this == other); }
};

// Where the sidecar of the movie at moviePath lies.
std::string FrameHashSidecarPath(const std::string& moviePath);

// The lines the sidecar starts with: the format, its version and hash, then what describes
// each stream (its timescale first), then the columns' names.
extern const char kFrameHashFormatLines[];
extern const char kFrameHashColumnsLine[];
// The lines that open the description of stream `stream`: its timescale (a time base of
// timeBaseNum/timeBaseDen seconds) and its media, "video" or "audio".
std::string FrameHashStreamLines(int stream, int timeBaseNum, int timeBaseDen, bool picture);

}  // namespace KTN
