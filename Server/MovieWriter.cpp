// Writes one QuickTime movie with FFmpeg's libavformat, libavcodec and libswscale.
#include "Server/MovieWriter.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include "Movie/MovieLock.h"
#include "Movie/MovieSidecars.h"
#include "Finish/AvFailure.h"
#include "Finish/MovieFinisher.h"
#include "FrameHash/FrameHashLine.h"
#include "Util/FileIo.h"
#include "Util/FourCC.h"
#include "Util/Printer.h"
#include "Util/RowBytes.h"

#include "Util/Log.h"

namespace KTN {

namespace {

// FFmpeg keeps a codec tag with its first character in the low byte; ours spell it from
// the high byte.
uint32_t FfmpegTag(uint32_t fourCC) {
  return __builtin_bswap32(fourCC);
}

AVCodecID PcmCodec(int bitsPerSample) {
  switch (bitsPerSample) {
    case 16: return AV_CODEC_ID_PCM_S16LE;  // 'sowt'
    case 24: return AV_CODEC_ID_PCM_S24LE;  // 'in24', little-endian
    case 32: return AV_CODEC_ID_PCM_S32LE;  // 'in32', little-endian
    default: return AV_CODEC_ID_NONE;
  }
}

// The JPEG quantiser for a codec quality of 0..1023: 1023 is 1, the best there is.
int JpegQuantiser(int quality) {
  int clamped = quality < 0 ? 0 : quality > 1023 ? 1023 : quality;
  return 1 + (1023 - clamped) * 30 / 1023;
}

}  // namespace

MovieWriter::MovieWriter() = default;

MovieWriter::~MovieWriter() {
  if (IsOpen()) Finish();
  CloseMovieFile();
}

uint64_t MovieWriter::VideoRowBytes() const {
  return Util::RowBytes(mSettings.deviceFormat, static_cast<uint32_t>(mSettings.width));
}

long MovieWriter::CheckSettings(const MovieSettings& s) const {
  if (s.path.empty()) {
    KTN_LOG("No movie path: SetFilePath must come before Prepare");
    return EINVAL;
  }
  if (!s.videoEnabled && !s.audioEnabled) {
    KTN_LOG("Neither video nor audio is enabled");
    return EINVAL;
  }
  if (s.videoEnabled) {
    if (!s.codec) {
      KTN_LOG("Codec type is not one this server writes");
      return EINVAL;
    }
    if (s.width <= 0 || s.height <= 0 || s.width > 8192 || s.height > 8192) {
      KTN_LOG("Frame size %dx%d is not recordable", s.width, s.height);
      return EINVAL;
    }
    if (s.frameDuration <= 0 || s.timescale <= 0 || s.frameDuration > INT32_MAX || s.timescale > INT32_MAX) {
      KTN_LOG("Frame duration %lld / timescale %lld is not a frame rate", static_cast<long long>(s.frameDuration),
              static_cast<long long>(s.timescale));
      return EINVAL;
    }
  }
  if (s.audioEnabled) {
    if (PcmCodec(s.bitsPerSample) == AV_CODEC_ID_NONE) {
      KTN_LOG("Audio sample type of %d bits is not 16, 24 or 32", s.bitsPerSample);
      return EINVAL;
    }
    if (s.channels < 1 || s.channels > 16) {
      KTN_LOG("Audio channel count %d is not 1 to 16", s.channels);
      return EINVAL;
    }
    if (s.sampleRate < 8000 || s.sampleRate > 192000) {
      KTN_LOG("Audio rate %d Hz is not 8000 to 192000", s.sampleRate);
      return EINVAL;
    }
  }
  return 0;
}

long MovieWriter::OpenMovieFile() {
  // A plain file only, never waited for, and emptied only under its one-writer lock, which
  // the descriptor holds until the movie is finished.
  long error = 0;
  int fd = MovieLock::CreateEmptied(mSettings.path, error);
  if (fd < 0) return error;
  // The writes that follow may wait for the disk as any file's do.
  if (fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK) != 0) {
    error = errno;
    KTN_LOG("fcntl(%s) failed with errno %ld (%s)", mSettings.path.c_str(), error, strerror(errno));
    close(fd);
    return error;
  }
  mFd = fd;
  return 0;
}

void MovieWriter::CloseMovieFile() {
  if (mFd < 0) return;
  if (close(mFd) != 0) KTN_LOG("close(%s) failed with errno %d (%s)", mSettings.path.c_str(), errno, strerror(errno));
  mFd = -1;
}

int MovieWriter::WriteToMovie(void* opaque, uint8_t* bytes, int size) {
  long rc = Util::FileIo::WriteAll(static_cast<MovieWriter*>(opaque)->mFd, bytes, static_cast<size_t>(size));
  return rc ? AVERROR(rc) : size;
}

int64_t MovieWriter::SeekInMovie(void* opaque, int64_t offset, int whence) {
  const int fd = static_cast<MovieWriter*>(opaque)->mFd;
  if (whence & AVSEEK_SIZE) {
    struct stat info;
    return fstat(fd, &info) == 0 ? static_cast<int64_t>(info.st_size) : AVERROR(errno);
  }
  off_t at = lseek(fd, static_cast<off_t>(offset), whence & ~AVSEEK_FORCE);
  return at < 0 ? AVERROR(errno) : static_cast<int64_t>(at);
}

long MovieWriter::Open(const MovieSettings& settings) {
  if (IsOpen()) {
    KTN_LOG("A movie is already open");
    return EINVAL;
  }
  if (long rc = CheckSettings(settings)) return rc;
  mSettings = settings;
  mFirstError = 0;
  mLastPicture = -1;
  mLastSubmitted = -1;
  mEmptyBefore = 0;
  mMarkedSinceSubmitted = false;
  // The movie is written to a descriptor of this server's own, never to a path FFmpeg
  // interprets: "pipe:1" or "file:/x" are the names of files like any other.
  int rc = avformat_alloc_output_context2(&mFormat, nullptr, "mov", nullptr);
  if (rc < 0 || !mFormat) {
    Release();
    return REPORT_AV("avformat_alloc_output_context2", rc < 0 ? rc : AVERROR(ENOMEM));
  }
  long result = 0;
  if (mSettings.videoEnabled) result = AddVideoStream();
  if (!result && mSettings.audioEnabled) result = AddAudioStream();
  // The file only once the streams and encoders are ready: an impossible recording leaves
  // no file behind.
  if (!result) result = OpenMovieFile();
  if (!result) {
    constexpr int kIoBufferBytes = 64 * 1024;
    unsigned char* buffer = static_cast<unsigned char*>(av_malloc(kIoBufferBytes));
    mFormat->pb = buffer ? avio_alloc_context(buffer, kIoBufferBytes, 1, this, nullptr, &WriteToMovie, &SeekInMovie)
                         : nullptr;
    if (!mFormat->pb) {
      av_free(buffer);
      result = REPORT_AV("avio_alloc_context", AVERROR(ENOMEM));
    }
    mFormat->flags |= AVFMT_FLAG_CUSTOM_IO;
  }
  // FFmpeg writes the header: ftyp and a moov that describes the tracks, holds no sample
  // and lets fragments follow. Every sample is then a fragment of its own (see
  // FragmentWriter), pushed to the file as soon as it is complete: a writer killed or a
  // disk filled mid-take leaves a movie that plays to the last frame written. Finish turns
  // the fragments into one ordinary index.
  AVDictionary* options = nullptr;
  av_dict_set(&options, "movflags", "+empty_moov+default_base_moof+frag_keyframe", 0);
  if (!result && (rc = avformat_write_header(mFormat, &options)) < 0) result = REPORT_AV("avformat_write_header", rc);
  av_dict_free(&options);
  int64_t headerBytes = 0;
  if (!result) {
    avio_flush(mFormat->pb);
    headerBytes = avio_tell(mFormat->pb);
    if (mFormat->pb->error < 0) result = REPORT_AV("avio_flush", mFormat->pb->error);
    FreeIo();
  }
  if (!result) {
    // The fragments go to the same open file (and lock), through a descriptor of their own.
    int fragments = fcntl(mFd, F_DUPFD_CLOEXEC, 0);
    if (fragments < 0) {
      result = errno;
      KTN_LOG("fcntl(%s, F_DUPFD_CLOEXEC) failed with errno %ld (%s)", mSettings.path.c_str(), result, strerror(errno));
    } else {
      result = mFragments.Open(fragments, mSettings.path, static_cast<uint64_t>(headerBytes));
    }
  }
  if (!result && mFrameHashes) {
    result = mFragments.OpenSidecar(FrameHashSidecarPath(mSettings.path), SidecarHeader());
  } else if (!result) {
    // A sidecar of the take this one replaces would describe another take.
    result = MovieSidecars::Remove(FrameHashSidecarPath(mSettings.path));
  }
  if (!result) OpenSignalMonitor();
  if (result) {
    Release();
    CloseMovieFile();
  }
  return result;
}

void MovieWriter::OpenSignalMonitor() {
  if (!mMeasurement) {
    // Figures of the take this one replaces would describe another take.
    MovieSidecars::Remove(MovieSidecars::Levels(mSettings.path));
    MovieSidecars::Remove(MovieSidecars::Events(mSettings.path));
    return;
  }
  SignalMonitor::Layout layout;
  layout.pictures = mSettings.videoEnabled;
  // The card's rows, as they arrive: the encoded types measure them before encoding.
  layout.pixelFormat = mSettings.deviceFormat;
  layout.width = mSettings.width;
  layout.rowBytes = mSettings.videoEnabled ? VideoRowBytes() : 0;
  layout.rows = mSettings.height;
  layout.frameDuration = mSettings.frameDuration;
  layout.timescale = mSettings.timescale;
  layout.channels = mSettings.audioEnabled ? mSettings.channels : 0;
  layout.bitsPerSample = mSettings.bitsPerSample;
  layout.sampleRate = mSettings.sampleRate;
  if (long rc = mSignal.Open(mSettings.path, layout)) {
    KTN_LOG("The take %s is recorded without its levels and events (errno %ld)", mSettings.path.c_str(), rc);
  }
}

long MovieWriter::AddVideoStream() {
  const ServerCodec& codec = *mSettings.codec;
  AVRational timeBase;
  av_reduce(&timeBase.num, &timeBase.den, mSettings.frameDuration, mSettings.timescale, INT32_MAX);
  mFrameTime = timeBase;
  AVRational aspect = {mSettings.pixelAspectX > 0 ? mSettings.pixelAspectX : 1,
                       mSettings.pixelAspectY > 0 ? mSettings.pixelAspectY : 1};
  int storedWidth = codec.storedWidth ? static_cast<int>(codec.storedWidth) : mSettings.width;
  int storedHeight = codec.storedHeight ? static_cast<int>(codec.storedHeight) : mSettings.height;
  // A scaled raster keeps the picture's shape: the pixels widen by what the width lost.
  aspect = av_mul_q(aspect, AVRational{mSettings.width, storedWidth});
  av_reduce(&aspect.num, &aspect.den, aspect.num, aspect.den, 65535);

  mVideoStream = avformat_new_stream(mFormat, nullptr);
  if (!mVideoStream) return REPORT_AV("avformat_new_stream", AVERROR(ENOMEM));
  // The mov muxer picks the DV fourcc from this time base (720p50: den 50; 1080i50: 25).
  mVideoStream->time_base = timeBase;
  mVideoStream->avg_frame_rate = av_inv_q(timeBase);
  mVideoStream->sample_aspect_ratio = aspect;
  // The colours and field order go into the movie's header (colr, fiel), where readers take
  // them from; a field order this server cannot know is stamped later by the host side.
  mPictures = DescribePictures(codec, storedHeight, mSettings.frameDuration, mSettings.timescale);

  if (!codec.encoderName) {
    AVCodecParameters* par = mVideoStream->codecpar;
    par->codec_type = AVMEDIA_TYPE_VIDEO;
    par->codec_id = codec.codecId;
    par->codec_tag = FfmpegTag(codec.codecType);
    par->format = codec.encoderFormat;
    par->width = mSettings.width;
    par->height = mSettings.height;
    par->sample_aspect_ratio = aspect;
    par->field_order = mPictures.fieldOrder;
    par->color_primaries = mPictures.primaries;
    par->color_trc = mPictures.transfer;
    par->color_space = mPictures.matrix;
    par->bits_per_coded_sample = codec.codecId == AV_CODEC_ID_RAWVIDEO ? 16 : codec.codecId == AV_CODEC_ID_V210 ? 20 : 30;
    return 0;
  }

  if (long rc = OpenEncoder()) return rc;
  int rc = avcodec_parameters_from_context(mVideoStream->codecpar, mEncoder);
  if (rc < 0) return REPORT_AV("avcodec_parameters_from_context", rc);
  if (codec.codecId != AV_CODEC_ID_DVVIDEO) mVideoStream->codecpar->codec_tag = FfmpegTag(codec.codecType);

  if (codec.encoderFormat == AV_PIX_FMT_YUVJ422P && storedWidth == mSettings.width && storedHeight == mSettings.height) {
    // JPEG's colours are BT.601's, as every decoder reads them: HD and 2K pictures are turned
    // into them.
    mFullRange.reset(new FullRangeConverter(mPictures.primaries == AVCOL_PRI_BT709));
  } else {
    mScaler = sws_getContext(mSettings.width, mSettings.height, AV_PIX_FMT_UYVY422, storedWidth, storedHeight,
                             codec.encoderFormat, SWS_BICUBIC, nullptr, nullptr, nullptr);
  }
  if (!mScaler && !mFullRange) {
    KTN_LOG("sws_getContext failed for %dx%d to %dx%d", mSettings.width, mSettings.height, storedWidth, storedHeight);
    return EINVAL;
  }
  mFrame = av_frame_alloc();
  if (!mFrame) return REPORT_AV("av_frame_alloc", AVERROR(ENOMEM));
  mFrame->format = codec.encoderFormat;
  mFrame->width = storedWidth;
  mFrame->height = storedHeight;
  rc = av_frame_get_buffer(mFrame, 0);
  if (rc < 0) return REPORT_AV("av_frame_get_buffer", rc);
  mPacket = av_packet_alloc();
  if (!mPacket) return REPORT_AV("av_packet_alloc", AVERROR(ENOMEM));
  return 0;
}

long MovieWriter::OpenEncoder() {
  const ServerCodec& codec = *mSettings.codec;
  const AVCodec* encoder = avcodec_find_encoder_by_name(codec.encoderName);
  if (!encoder) {
    KTN_LOG("FFmpeg has no %s encoder for %s", codec.encoderName, Util::Printer::Fcc(static_cast<int>(codec.codecType)));
    return EINVAL;
  }
  mEncoder = avcodec_alloc_context3(encoder);
  if (!mEncoder) return REPORT_AV("avcodec_alloc_context3", AVERROR(ENOMEM));
  mEncoder->width = codec.storedWidth ? static_cast<int>(codec.storedWidth) : mSettings.width;
  mEncoder->height = codec.storedHeight ? static_cast<int>(codec.storedHeight) : mSettings.height;
  mEncoder->pix_fmt = codec.encoderFormat;
  mEncoder->time_base = mFrameTime;
  mEncoder->framerate = av_inv_q(mFrameTime);
  mEncoder->sample_aspect_ratio = mVideoStream->sample_aspect_ratio;
  mEncoder->field_order = mPictures.fieldOrder;
  mEncoder->color_primaries = mPictures.primaries;
  mEncoder->color_trc = mPictures.transfer;
  mEncoder->colorspace = mPictures.matrix;
  mEncoder->thread_count = 0;  // as many as the encoder can use
  if (codec.profile != FF_PROFILE_UNKNOWN) mEncoder->profile = codec.profile;
  if (codec.codecId == AV_CODEC_ID_MJPEG) {
    int quantiser = JpegQuantiser(mSettings.quality);
    mEncoder->flags |= AV_CODEC_FLAG_QSCALE;
    mEncoder->global_quality = FF_QP2LAMBDA * quantiser;
    mEncoder->qmin = 1;
    mEncoder->qmax = quantiser > 1 ? quantiser : 1;
  }
  if (mFormat->oformat->flags & AVFMT_GLOBALHEADER) mEncoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  int rc = avcodec_open2(mEncoder, encoder, nullptr);
  if (rc < 0) return REPORT_AV("avcodec_open2", rc);
  return 0;
}

long MovieWriter::AddAudioStream() {
  mAudioStream = avformat_new_stream(mFormat, nullptr);
  if (!mAudioStream) return REPORT_AV("avformat_new_stream", AVERROR(ENOMEM));
  AVCodecParameters* par = mAudioStream->codecpar;
  par->codec_type = AVMEDIA_TYPE_AUDIO;
  par->codec_id = PcmCodec(mSettings.bitsPerSample);
  par->sample_rate = mSettings.sampleRate;
  if (mSettings.channels <= 8) {
    av_channel_layout_default(&par->ch_layout, mSettings.channels);
  } else {
    av_channel_layout_uninit(&par->ch_layout);
    par->ch_layout.order = AV_CHANNEL_ORDER_UNSPEC;
    par->ch_layout.nb_channels = mSettings.channels;
  }
  par->bits_per_coded_sample = mSettings.bitsPerSample;
  par->block_align = mSettings.channels * mSettings.bitsPerSample / 8;
  par->frame_size = 1;
  mAudioStream->time_base = AVRational{1, mSettings.sampleRate};
  return 0;
}

std::string MovieWriter::SidecarHeader() const {
  std::string header = kFrameHashFormatLines;
  char text[256];
  auto add = [&](const char* format, auto... values) {
    snprintf(text, sizeof text, format, values...);
    header += text;
  };
  header += "#software: QTRecordServer\n";
  for (const AVStream* stream : {mVideoStream, mAudioStream}) {
    if (!stream) continue;
    const AVCodecParameters* par = stream->codecpar;
    const int i = stream->index;
    header += FrameHashStreamLines(i, stream->time_base.num, stream->time_base.den, stream == mVideoStream);
    add("#codec_id %d: %s\n", i, avcodec_get_name(par->codec_id));
    if (par->codec_type == AVMEDIA_TYPE_VIDEO) {
      add("#dimensions %d: %dx%d\n", i, par->width, par->height);
      add("#sar %d: %d/%d\n", i, par->sample_aspect_ratio.num, par->sample_aspect_ratio.den);
    } else {
      char layout[128] = "";
      av_channel_layout_describe(&par->ch_layout, layout, sizeof layout);
      add("#sample_rate %d: %d\n", i, par->sample_rate);
      add("#channel_layout_name %d: %s\n", i, layout);
    }
  }
  return header + kFrameHashColumnsLine;
}

long MovieWriter::Record(long error) {
  if (error && !mFirstError) mFirstError = error;
  return error;
}

FragmentWriter::Sample MovieWriter::PictureSample(int64_t frameIndex, uint32_t size) const {
  FragmentWriter::Sample sample;
  sample.trackId = static_cast<uint32_t>(mVideoStream->index + 1);
  sample.picture = true;
  sample.decodeTime = static_cast<uint64_t>(av_rescale_q(frameIndex, mFrameTime, mVideoStream->time_base));
  sample.duration = static_cast<uint32_t>(av_rescale_q(1, mFrameTime, mVideoStream->time_base));
  sample.size = size;
  return sample;
}

long MovieWriter::WritePacket(AVPacket* packet) {
  const int64_t frameIndex = av_rescale_q(packet->pts, mEncoder->time_base, mFrameTime);
  long rc = mFragments.Write(PictureSample(frameIndex, static_cast<uint32_t>(packet->size)), packet->data);
  av_packet_unref(packet);
  if (rc) return Record(rc);
  mLastPicture = frameIndex;
  // Slots found empty while the encoder held this picture follow it, unless a later
  // picture is still in the encoder.
  return frameIndex == mLastSubmitted ? HoldLastPicture(mEmptyBefore) : 0;
}

long MovieWriter::HoldLastPicture(int64_t nextFrame) {
  if (mLastPicture < 0 || nextFrame <= mLastPicture + 1) return 0;
  const int64_t slotUnits = av_rescale_q(1, mFrameTime, mVideoStream->time_base);
  int64_t slots = nextFrame - mLastPicture;
  if (slotUnits > 0 && slots > static_cast<int64_t>(UINT32_MAX) / slotUnits) slots = UINT32_MAX / slotUnits;
  return Record(mFragments.ExtendLastPicture(
      static_cast<uint32_t>(av_rescale_q(slots, mFrameTime, mVideoStream->time_base))));
}

long MovieWriter::MarkSlotsEmptyBefore(int64_t nextFrame) {
  if (!mVideoStream) return EINVAL;
  if (mFirstError) return mFirstError;
  if (nextFrame > mEmptyBefore) mEmptyBefore = nextFrame;
  const bool again = mMarkedSinceSubmitted;
  mMarkedSinceSubmitted = true;
  if (mLastSubmitted > mLastPicture) {
    // The encoder holds pictures from before these slots; the last of them takes the slots
    // when it comes out (WritePacket), which the next pictures bring about. Marked again
    // with no picture between, the pictures have stopped coming: the encoder gives out
    // what it holds now, so the slots show while none comes.
    return again ? RestartEncoder() : 0;
  }
  return HoldLastPicture(mEmptyBefore);
}

long MovieWriter::RestartEncoder() {
  if (long rc = Encode(nullptr)) return rc;
  // A drained encoder takes no more pictures: a fresh one, as the first was made.
  avcodec_free_context(&mEncoder);
  return Record(OpenEncoder());
}

long MovieWriter::WriteVideo(Core::SharedMemory& segment, int64_t frameIndex) {
  if (!mVideoStream) return EINVAL;
  if (mFirstError) return mFirstError;
  if (!mEncoder) {
    FragmentWriter::BytesSeen* measured = mSignal.BeginPicture(frameIndex);
    long rc = mFragments.WriteFrom(PictureSample(frameIndex, static_cast<uint32_t>(segment.OpenedSize())),
                                   segment.Descriptor(), measured);
    mSignal.EndPicture(rc == 0);
    if (rc == ENODATA) return 0;  // its maker shrank the segment: the slot stays empty
    if (rc) return Record(rc);
    mLastPicture = mLastSubmitted = frameIndex;
    mMarkedSinceSubmitted = false;
    return 0;
  }
  // The encoders read a copy of the server's own, never the segment's pages: its maker can
  // shrink it at any time, and a mapping would then fault.
  if (long rc = segment.ReadOpened(mPicture)) return rc == ENODATA ? 0 : Record(rc);
  // Measured as the card gave it, before any scaling or encoding.
  mSignal.MeasurePicture(frameIndex, mPicture.data(), mPicture.size());
  if (!av_frame_is_writable(mFrame)) {
    // The encoder still holds the last picture: the next goes into a buffer of its own. Not
    // av_frame_make_writable, which would first copy the old picture that is overwritten whole.
    const int format = mFrame->format, width = mFrame->width, height = mFrame->height;
    av_frame_unref(mFrame);
    mFrame->format = format;
    mFrame->width = width;
    mFrame->height = height;
    int rc = av_frame_get_buffer(mFrame, 0);
    if (rc < 0) return Record(REPORT_AV("av_frame_get_buffer", rc));
  }
  const uint64_t rowBytes = VideoRowBytes();
  // NTSC arrives as 486 lines; its DV raster is the 480 from line 4 on, which keeps the
  // field order. Any other surplus is cut at the bottom.
  const uint64_t rows = segment.OpenedSize() / rowBytes;
  const uint64_t topCrop = rows == 486 && mSettings.height == 480 ? 4 : 0;
  const uint8_t* source[1] = {mPicture.data() + topCrop * rowBytes};
  const int strides[1] = {static_cast<int>(rowBytes)};
  if (mFullRange) {
    mFullRange->Convert(source[0], strides[0], mSettings.width, mSettings.height, mFrame->data, mFrame->linesize);
  } else {
    sws_scale(mScaler, source, strides, 0, mSettings.height, mFrame->data, mFrame->linesize);
  }
  mFrame->pts = frameIndex;
  // Encoders that describe their pictures in the stream (ProRes) take the colours from the frame.
  mFrame->color_primaries = mPictures.primaries;
  mFrame->color_trc = mPictures.transfer;
  mFrame->colorspace = mPictures.matrix;
  mFrame->interlaced_frame = mPictures.fieldOrder == AV_FIELD_TT || mPictures.fieldOrder == AV_FIELD_BB;
  mFrame->top_field_first = mPictures.fieldOrder == AV_FIELD_TT;
  if (mEncoder->codec_id == AV_CODEC_ID_MJPEG) mFrame->quality = mEncoder->global_quality;
  mLastSubmitted = frameIndex;
  mMarkedSinceSubmitted = false;
  return Encode(mFrame);
}

long MovieWriter::Encode(AVFrame* frame) {
  int rc = avcodec_send_frame(mEncoder, frame);
  if (rc < 0) return Record(REPORT_AV("avcodec_send_frame", rc));
  for (;;) {
    rc = avcodec_receive_packet(mEncoder, mPacket);
    if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return 0;
    if (rc < 0) return Record(REPORT_AV("avcodec_receive_packet", rc));
    if (long error = WritePacket(mPacket)) return error;
  }
}

long MovieWriter::WriteAudio(Core::SharedMemory& segment, int64_t firstSample) {
  if (!mAudioStream) return EINVAL;
  if (mFirstError) return mFirstError;
  const AVRational sampleTime = {1, mSettings.sampleRate};
  FragmentWriter::Sample sample;
  sample.trackId = static_cast<uint32_t>(mAudioStream->index + 1);
  sample.decodeTime = static_cast<uint64_t>(av_rescale_q(firstSample, sampleTime, mAudioStream->time_base));
  sample.size = static_cast<uint32_t>(segment.OpenedSize());
  sample.frameBytes = static_cast<uint32_t>(mAudioStream->codecpar->block_align);
  sample.duration = static_cast<uint32_t>(
      av_rescale_q(sample.size / mAudioStream->codecpar->block_align, sampleTime, mAudioStream->time_base));
  long rc = mFragments.WriteFrom(sample, segment.Descriptor(), mSignal.BeginSound(firstSample));
  mSignal.EndSound(rc == 0);
  return rc == ENODATA ? 0 : Record(rc);  // a shrunk segment's sound is left out, and the take goes on
}

long MovieWriter::Finish(int64_t videoSlots) {
  if (!IsOpen()) return 0;
  if (mEncoder && !mFirstError) Encode(nullptr);
  if (!mFirstError && mVideoStream) HoldLastPicture(videoSlots);
  mSignal.Finish(mVideoStream ? (videoSlots >= 0 ? videoSlots : mLastSubmitted + 1) : -1);
  // A failed write left a torn fragment, which Close cuts off: the complete fragments
  // before it are the take.
  Record(mFragments.Close());
  long result = mFirstError;
  std::string path = mSettings.path;
  const int64_t frameDuration = mSettings.videoEnabled ? mSettings.frameDuration : 0;
  const int64_t timescale = mSettings.timescale;
  Release();
  // The fragments already play; a failed rewrite (a full disk, say) leaves them as they are.
  if (long rc = MovieFinisher::Finish(path, frameDuration, timescale)) {
    KTN_LOG("The movie %s is kept as fragments (error %ld)", path.c_str(), rc);
  }
  CloseMovieFile();  // finished: others may write it from here on
  return result;
}

void MovieWriter::FreeIo() {
  if (!mFormat || !mFormat->pb) return;
  av_freep(&mFormat->pb->buffer);
  avio_context_free(&mFormat->pb);
}

void MovieWriter::Release() {
  FreeIo();
  avformat_free_context(mFormat);
  mFormat = nullptr;
  mVideoStream = nullptr;
  mAudioStream = nullptr;
  avcodec_free_context(&mEncoder);
  sws_freeContext(mScaler);
  mScaler = nullptr;
  mFullRange.reset();
  av_frame_free(&mFrame);
  av_packet_free(&mPacket);
}

}  // namespace KTN
