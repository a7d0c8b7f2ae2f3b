// Test support: what a written movie holds, read back with libavformat, ffprobe and GStreamer's demuxer.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace KTN {

struct ProbedStream {
  bool present = false;
  uint32_t codecTag = 0;
  int width = 0;
  int height = 0;
  int timeBaseNum = 0;   // the stream's sample duration and timescale, reduced
  int timeBaseDen = 0;
  int64_t packets = 0;
  int64_t lastPts = -1;       // in the stream's own time base
  int64_t totalDuration = 0;  // in the stream's own time base
  int channels = 0;
  int sampleRate = 0;
  int bitsPerSample = 0;
  std::string fieldOrder;     // "progressive", "tt", "bb" or "unknown"
  std::vector<uint8_t> bytes;  // every packet's data, concatenated
  std::vector<int64_t> pts;
};

struct ProbedMovie {
  bool opened = false;
  ProbedStream video;
  ProbedStream audio;
  bool decodedEveryVideoFrame = false;
};

// Opens the movie at path and reads every packet; decodes the video when decode is set.
ProbedMovie ProbeMovie(const std::string& path, bool decode);

// Output of a command line run by the shell, without its final line feed.
std::string CommandOutput(const std::string& commandLine);
// Output of a command line run by the shell, whole, with the shell's exit status in
// exitStatus (-1 when it could not be started or did not exit).
std::string CommandOutput(const std::string& commandLine, int& exitStatus);

// text quoted for the shell, whatever it holds (spaces, quotes).
std::string ShellQuoted(const std::string& text);

// What ffprobe prints of the movie at path for selection, its options that choose the
// streams or packets and their entries ("-select_streams v:0 -show_entries
// stream=field_order"): one line each, its values separated by commas, without a final
// line feed. Errors only, no banner.
std::string Ffprobe(const std::string& path, const std::string& selection);

// FFmpeg's framehash (murmur3) of the movie's picture and sound packets copied as they are
// stored, as `ffmpeg -i MOVIE -map 0:v? -map 0:a? -c copy -f framehash -hash murmur3 -` prints
// it, killed if it runs for more than a minute: its exit status, its output in text and its
// error output in error (kept meanwhile in a file of folder).
int FfmpegFrameHashes(const std::string& movie, const std::string& folder, std::string& text, std::string& error);

// What GStreamer's QuickTime demuxer reads of a movie's first video and first audio track,
// as "<pictures>,<sound buffers>": a third reader, independent of FFmpeg and MediaInfo.
std::string QtdemuxBufferCounts(const std::string& path);

}  // namespace KTN
