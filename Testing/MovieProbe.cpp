// Test support: reading a written movie back with libavformat and libavcodec.
#include "Testing/MovieProbe.h"

#include <stdio.h>
#include <sys/wait.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace KTN {

namespace {

void DescribeStream(const AVStream* stream, ProbedStream& probed) {
  const AVCodecParameters* par = stream->codecpar;
  probed.present = true;
  probed.codecTag = __builtin_bswap32(par->codec_tag);  // stored little-endian: spell it MSB first
  probed.width = par->width;
  probed.height = par->height;
  probed.channels = par->ch_layout.nb_channels;
  probed.sampleRate = par->sample_rate;
  probed.bitsPerSample = par->bits_per_coded_sample;
  switch (par->field_order) {
    case AV_FIELD_PROGRESSIVE: probed.fieldOrder = "progressive"; break;
    case AV_FIELD_TT: probed.fieldOrder = "tt"; break;
    case AV_FIELD_BB: probed.fieldOrder = "bb"; break;
    default: probed.fieldOrder = "unknown"; break;
  }
}

}  // namespace

ProbedMovie ProbeMovie(const std::string& path, bool decode) {
  ProbedMovie movie;
  AVFormatContext* format = nullptr;
  if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) < 0) return movie;
  if (avformat_find_stream_info(format, nullptr) < 0) {
    avformat_close_input(&format);
    return movie;
  }
  movie.opened = true;
  int videoIndex = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  int audioIndex = av_find_best_stream(format, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
  AVCodecContext* decoder = nullptr;
  if (videoIndex >= 0) {
    DescribeStream(format->streams[videoIndex], movie.video);
    if (decode) {
      const AVCodec* codec = avcodec_find_decoder(format->streams[videoIndex]->codecpar->codec_id);
      decoder = codec ? avcodec_alloc_context3(codec) : nullptr;
      if (decoder) {
        avcodec_parameters_to_context(decoder, format->streams[videoIndex]->codecpar);
        if (avcodec_open2(decoder, codec, nullptr) < 0) avcodec_free_context(&decoder);
      }
      movie.decodedEveryVideoFrame = decoder != nullptr;
    }
  }
  if (audioIndex >= 0) DescribeStream(format->streams[audioIndex], movie.audio);
  AVPacket* packet = av_packet_alloc();
  AVFrame* frame = av_frame_alloc();
  while (av_read_frame(format, packet) >= 0) {
    ProbedStream* stream = packet->stream_index == videoIndex ? &movie.video
                           : packet->stream_index == audioIndex ? &movie.audio
                                                                : nullptr;
    if (stream) {
      ++stream->packets;
      stream->lastPts = packet->pts;
      stream->pts.push_back(packet->pts);
      stream->totalDuration += packet->duration;
      stream->bytes.insert(stream->bytes.end(), packet->data, packet->data + packet->size);
      AVRational timeBase = format->streams[packet->stream_index]->time_base;
      stream->timeBaseNum = timeBase.num;
      stream->timeBaseDen = timeBase.den;
    }
    if (decoder && packet->stream_index == videoIndex) {
      int sent = avcodec_send_packet(decoder, packet);
      int received = sent < 0 ? sent : avcodec_receive_frame(decoder, frame);
      if (received < 0 && received != AVERROR(EAGAIN)) movie.decodedEveryVideoFrame = false;
    }
    av_packet_unref(packet);
  }
  av_frame_free(&frame);
  av_packet_free(&packet);
  avcodec_free_context(&decoder);
  avformat_close_input(&format);
  return movie;
}

std::string QtdemuxBufferCounts(const std::string& path) {
  std::string counts;
  for (const char* pad : {"video_0", "audio_0"}) {
    // Each buffer the demuxer hands on is one line of the sink's "chain" messages.
    std::string count = CommandOutput("gst-launch-1.0 -v filesrc location=" + ShellQuoted(path) + " ! qtdemux name=d d." + pad +
                                      " ! queue ! fakesink silent=false 2>&1 | grep -c 'chain'");
    counts += (counts.empty() ? "" : ",") + count;
  }
  return counts;
}

std::string CommandOutput(const std::string& commandLine) {
  int exitStatus = -1;
  std::string output = CommandOutput(commandLine, exitStatus);
  while (!output.empty() && (output.back() == '\n' || output.back() == '\r')) output.pop_back();
  return output;
}

std::string CommandOutput(const std::string& commandLine, int& exitStatus) {
  std::string output;
  exitStatus = -1;
  FILE* pipe = popen(commandLine.c_str(), "r");
  if (!pipe) return output;
  char buffer[4096];
  size_t read;
  while ((read = fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, read);
  const int status = pclose(pipe);
  if (status != -1 && WIFEXITED(status)) exitStatus = WEXITSTATUS(status);
  return output;
}

std::string ShellQuoted(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

int FfmpegFrameHashes(const std::string& movie, const std::string& folder, std::string& text, std::string& error) {
  const std::string errors = folder + "/ffmpeg.stderr";
  const std::string command = "timeout -k 5 60 ffmpeg -nostdin -v error -i " + ShellQuoted(movie) +
                              " -map '0:v?' -map '0:a?' -c copy -f framehash -hash murmur3 - 2> " + ShellQuoted(errors);
  int exitStatus = -1;
  text = CommandOutput(command, exitStatus);
  error.clear();
  if (FILE* file = fopen(errors.c_str(), "r")) {
    char buffer[4096];
    size_t read;
    while ((read = fread(buffer, 1, sizeof buffer, file)) > 0) error.append(buffer, read);
    fclose(file);
  }
  remove(errors.c_str());
  return exitStatus;
}

std::string Ffprobe(const std::string& path, const std::string& selection) {
  return CommandOutput("ffprobe -v error " + selection + " -of csv=p=0 " + ShellQuoted(path));
}

}  // namespace KTN
