// A movie played in a loop as the simulated card's picture, at the mode's size and pixel format.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "Simulator/PixelRows.h"

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct SwsContext;

namespace KTN {
namespace Sim {

// Used by the capture thread only.
class SourceMovie {
 public:
  SourceMovie() = default;
  ~SourceMovie();

  SourceMovie(const SourceMovie&) = delete;
  SourceMovie& operator=(const SourceMovie&) = delete;

  // Opens the movie's first video stream; false (with one failure line) when it cannot be
  // read. Pictures come out width x height in pixelFormat.
  bool Open(const std::string& path, int width, int height, uint32_t pixelFormat, bool hd);
  // Writes the next picture (rows of FrameRowBytes), starting again at the end.
  bool Render(uint8_t* frame);

 private:
  bool Decode(AVFrame* picture);
  void Close();

  int mWidth = 0;
  int mHeight = 0;
  uint32_t mFormat = 0;
  uint64_t mRowBytes = 0;
  int mStream = -1;
  AVFormatContext* mFormatContext = nullptr;
  AVCodecContext* mDecoder = nullptr;
  SwsContext* mScaler = nullptr;
  int mScalerSourceFormat = -1;
  AVFrame* mDecoded = nullptr;
  AVFrame* mScaled = nullptr;
  AVPacket* mPacket = nullptr;
  std::vector<Pixel> mPixels;  // one row, for the formats packed from planes
};

}  // namespace Sim
}  // namespace KTN
