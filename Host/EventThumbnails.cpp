// A take's slot pictures decoded with libavformat and libavcodec and scaled with libswscale.
#include "Host/EventThumbnails.h"

#include <errno.h>

#include <algorithm>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

#include "Finish/AvFailure.h"

namespace KTN {

namespace {

struct FrameFree {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct PacketFree {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using Frame = std::unique_ptr<AVFrame, FrameFree>;
using Packet = std::unique_ptr<AVPacket, PacketFree>;

}  // namespace

EventThumbnails::EventThumbnails() = default;

EventThumbnails::~EventThumbnails() {
  sws_freeContext(mScaler);
  avcodec_free_context(&mDecoder);
  avformat_close_input(&mFormat);
}

long EventThumbnails::Open(const std::string& moviePath, uint32_t frameDuration, uint32_t timescale) {
  mFrameDuration = frameDuration;
  mTimescale = timescale;
  if (!frameDuration || !timescale) return EINVAL;
  // Read as a plain file, never as one of FFmpeg's protocols.
  const std::string url = "file:" + moviePath;
  if (int rc = avformat_open_input(&mFormat, url.c_str(), nullptr, nullptr)) return REPORT_AV("avformat_open_input", rc);
  if (int rc = avformat_find_stream_info(mFormat, nullptr); rc < 0) return REPORT_AV("avformat_find_stream_info", rc);
  const AVCodec* codec = nullptr;
  mStream = av_find_best_stream(mFormat, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
  if (mStream < 0) return REPORT_AV("av_find_best_stream", mStream);
  mDecoder = avcodec_alloc_context3(codec);
  if (!mDecoder) return ENOMEM;
  if (int rc = avcodec_parameters_to_context(mDecoder, mFormat->streams[mStream]->codecpar); rc < 0) {
    return REPORT_AV("avcodec_parameters_to_context", rc);
  }
  mDecoder->thread_count = 1;
  if (int rc = avcodec_open2(mDecoder, codec, nullptr)) return REPORT_AV("avcodec_open2", rc);
  return 0;
}

QImage EventThumbnails::At(int64_t slot, int width) {
  if (!mDecoder || width <= 0) return QImage();
  AVStream* stream = mFormat->streams[mStream];
  const int64_t start = stream->start_time == AV_NOPTS_VALUE ? 0 : stream->start_time;
  const int64_t target =
      start + av_rescale_q(slot * static_cast<int64_t>(mFrameDuration), AVRational{1, static_cast<int>(mTimescale)},
                           stream->time_base);
  if (int rc = av_seek_frame(mFormat, mStream, target, AVSEEK_FLAG_BACKWARD); rc < 0) {
    REPORT_AV("av_seek_frame", rc);
    return QImage();
  }
  avcodec_flush_buffers(mDecoder);
  Packet packet(av_packet_alloc());
  Frame frame(av_frame_alloc()), shown(av_frame_alloc());
  if (!packet || !frame || !shown) return QImage();
  // The last picture that starts at or before the slot; the first after it only when none does.
  bool have = false, done = false, draining = false;
  while (!done) {
    if (!draining) {
      int rc = av_read_frame(mFormat, packet.get());
      if (rc < 0) {
        draining = true;
        avcodec_send_packet(mDecoder, nullptr);
      } else {
        if (packet->stream_index == mStream && (rc = avcodec_send_packet(mDecoder, packet.get())) < 0) {
          REPORT_AV("avcodec_send_packet", rc);
          av_packet_unref(packet.get());
          return QImage();
        }
        av_packet_unref(packet.get());
      }
    }
    for (;;) {
      int rc = avcodec_receive_frame(mDecoder, frame.get());
      if (rc == AVERROR(EAGAIN)) break;
      if (rc < 0) {
        done = true;
        break;
      }
      const int64_t pts = frame->best_effort_timestamp == AV_NOPTS_VALUE ? frame->pts : frame->best_effort_timestamp;
      if (!have || pts <= target) {
        av_frame_unref(shown.get());
        av_frame_move_ref(shown.get(), frame.get());
        have = true;
      }
      av_frame_unref(frame.get());
      if (pts >= target) {
        done = true;
        break;
      }
    }
  }
  if (!have || shown->width <= 0 || shown->height <= 0) return QImage();

  // The display aspect: the pictures' sample aspect when the movie says one.
  double displayWidth = shown->width;
  const AVRational aspect = shown->sample_aspect_ratio.num ? shown->sample_aspect_ratio : stream->sample_aspect_ratio;
  if (aspect.num > 0 && aspect.den > 0) displayWidth = shown->width * av_q2d(aspect);
  const int height = std::max(1, static_cast<int>(width * shown->height / displayWidth + 0.5));
  QImage image(width, height, QImage::Format_RGB888);
  mScaler = sws_getCachedContext(mScaler, shown->width, shown->height, static_cast<AVPixelFormat>(shown->format), width,
                                 height, AV_PIX_FMT_RGB24, SWS_BILINEAR, nullptr, nullptr, nullptr);
  if (!mScaler) {
    REPORT_AV("sws_getCachedContext", AVERROR(EINVAL));
    return QImage();
  }
  uint8_t* planes[4] = {image.bits(), nullptr, nullptr, nullptr};
  int strides[4] = {static_cast<int>(image.bytesPerLine()), 0, 0, 0};
  sws_scale(mScaler, shown->data, shown->linesize, 0, shown->height, planes, strides);
  return image;
}

}  // namespace KTN
