// A movie played in a loop as the simulated card's picture, decoded with FFmpeg.
#include "Simulator/SourceMovie.h"

#include <string.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include "DeviceAPI/VeldranAPI.h"
#include "Util/Log.h"

namespace KTN {
namespace Sim {

namespace {

// What swscale produces for each device format: 2vuy, ARGB and BGRA directly; v210 and
// r210 are packed from 10-bit planes.
AVPixelFormat ScaledFormat(uint32_t format) {
  switch (format) {
    case ktnFormat8BitYUV: return AV_PIX_FMT_UYVY422;
    case ktnFormat10BitYUV: return AV_PIX_FMT_YUV422P10LE;
    case ktnFormat10BitRGB: return AV_PIX_FMT_GBRP10LE;
    case ktnFormat8BitARGB: return AV_PIX_FMT_ARGB;
    case ktnFormat8BitBGRA: return AV_PIX_FMT_BGRA;
    default: return AV_PIX_FMT_NONE;
  }
}

}  // namespace

SourceMovie::~SourceMovie() {
  Close();
}

void SourceMovie::Close() {
  avcodec_free_context(&mDecoder);
  avformat_close_input(&mFormatContext);
  sws_freeContext(mScaler);
  mScaler = nullptr;
  av_frame_free(&mDecoded);
  av_frame_free(&mScaled);
  av_packet_free(&mPacket);
}

bool SourceMovie::Open(const std::string& path, int width, int height, uint32_t pixelFormat, bool hd) {
  Close();
  mWidth = width;
  mHeight = height;
  mFormat = pixelFormat;
  mRowBytes = FrameRowBytes(pixelFormat, width);
  mPixels.assign(static_cast<size_t>(width), Pixel());
  int rc = avformat_open_input(&mFormatContext, path.c_str(), nullptr, nullptr);
  if (rc < 0 || avformat_find_stream_info(mFormatContext, nullptr) < 0) {
    KTN_LOG("Cannot read the source movie %s (%d)", path.c_str(), rc);
    Close();
    return false;
  }
  const AVCodec* codec = nullptr;
  mStream = av_find_best_stream(mFormatContext, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
  if (mStream < 0 || !codec) {
    KTN_LOG("The source movie %s has no video this card can decode", path.c_str());
    Close();
    return false;
  }
  mDecoder = avcodec_alloc_context3(codec);
  if (!mDecoder || avcodec_parameters_to_context(mDecoder, mFormatContext->streams[mStream]->codecpar) < 0 ||
      avcodec_open2(mDecoder, codec, nullptr) < 0) {
    KTN_LOG("Cannot open the decoder of the source movie %s", path.c_str());
    Close();
    return false;
  }
  mDecoded = av_frame_alloc();
  mScaled = av_frame_alloc();
  mPacket = av_packet_alloc();
  if (!mDecoded || !mScaled || !mPacket) {
    KTN_LOG("Out of memory opening the source movie %s", path.c_str());
    Close();
    return false;
  }
  mScaled->format = ScaledFormat(pixelFormat);
  mScaled->width = width;
  mScaled->height = height;
  if (mScaled->format == AV_PIX_FMT_NONE || av_frame_get_buffer(mScaled, 0) < 0) {
    KTN_LOG("Cannot convert the source movie to this pixel format");
    Close();
    return false;
  }
  (void)hd;  // swscale's default matrices: BT.601; good enough for a test picture
  return true;
}

bool SourceMovie::Decode(AVFrame* picture) {
  for (int attempts = 0; attempts < 2; ++attempts) {
    for (;;) {
      int rc = avcodec_receive_frame(mDecoder, picture);
      if (rc == 0) return true;
      if (rc != AVERROR(EAGAIN)) break;  // end of stream: start again
      rc = av_read_frame(mFormatContext, mPacket);
      if (rc < 0) {
        avcodec_send_packet(mDecoder, nullptr);  // drain what is left
        continue;
      }
      if (mPacket->stream_index == mStream) avcodec_send_packet(mDecoder, mPacket);
      av_packet_unref(mPacket);
    }
    av_seek_frame(mFormatContext, mStream, 0, AVSEEK_FLAG_BACKWARD);
    avcodec_flush_buffers(mDecoder);
  }
  return false;
}

bool SourceMovie::Render(uint8_t* frame) {
  if (!mDecoder || !Decode(mDecoded)) return false;
  if (!mScaler || mScalerSourceFormat != mDecoded->format) {
    sws_freeContext(mScaler);
    mScaler = sws_getContext(mDecoded->width, mDecoded->height, static_cast<AVPixelFormat>(mDecoded->format), mWidth,
                             mHeight, static_cast<AVPixelFormat>(mScaled->format), SWS_BILINEAR, nullptr, nullptr, nullptr);
    mScalerSourceFormat = mDecoded->format;
    if (!mScaler) return false;
  }
  av_frame_make_writable(mScaled);
  sws_scale(mScaler, mDecoded->data, mDecoded->linesize, 0, mDecoded->height, mScaled->data, mScaled->linesize);
  av_frame_unref(mDecoded);
  for (int y = 0; y < mHeight; ++y) {
    uint8_t* row = frame + static_cast<size_t>(y) * mRowBytes;
    if (mFormat == ktnFormat10BitYUV || mFormat == ktnFormat10BitRGB) {
      const uint16_t* p0 = reinterpret_cast<const uint16_t*>(mScaled->data[0] + y * mScaled->linesize[0]);
      const uint16_t* p1 = reinterpret_cast<const uint16_t*>(mScaled->data[1] + y * mScaled->linesize[1]);
      const uint16_t* p2 = reinterpret_cast<const uint16_t*>(mScaled->data[2] + y * mScaled->linesize[2]);
      for (int x = 0; x < mWidth; ++x) {
        Pixel& pixel = mPixels[x];
        if (mFormat == ktnFormat10BitYUV) {  // planes Y, Cb, Cr (chroma at half width)
          pixel.y = p0[x], pixel.cb = p1[x / 2], pixel.cr = p2[x / 2];
        } else {  // planes G, B, R
          pixel.g = p0[x], pixel.b = p1[x], pixel.r = p2[x];
        }
      }
      PackRow(mFormat, mPixels.data(), mWidth, row);
    } else {
      memcpy(row, mScaled->data[0] + y * mScaled->linesize[0], mRowBytes);
    }
  }
  return true;
}

}  // namespace Sim
}  // namespace KTN
