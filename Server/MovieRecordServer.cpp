// The recording server: the recorder's commands writing real QuickTime movies.
#include "Server/MovieRecordServer.h"

#include <errno.h>
#include <unistd.h>

#include "IPC/RecorderCommands.h"
#include "Server/CodecTable.h"
#include "Util/FourCC.h"
#include "Util/Log.h"
#include "Util/Printer.h"

namespace KTN {

namespace {

constexpr uint32_t kServerVendor = Util::FourCC("appl");

// The backlog holds about this many seconds of video: a disk (or a writer) that stalls for
// two seconds costs no frame.
constexpr double kBacklogSeconds = 2.5;

// More skipped slots than frames in a year: an argument no plug-in sends.
constexpr unsigned long long kMostSkippedFrames = 60ull * 60 * 24 * 366 * 60;

}  // namespace

MovieRecordServer::MovieRecordServer(const ServerOptions& options) : mOptions(options) {
  mWriter.SetCacheWindow(options.cacheWindowBytes);
  mWriter.SetFrameHashes(options.frameHashes);
  mWriter.SetMeasurement(options.measurement);
}

MovieRecordServer::~MovieRecordServer() {
  FinishRecording();
}

long MovieRecordServer::GetCodecManufacturer(int codecType) {
  return FindServerCodec(static_cast<uint32_t>(codecType)) ? static_cast<long>(kServerVendor) : 0;
}

long MovieRecordServer::Begin() {
  if (mQueue) {
    KTN_LOG("Begin during a recording: finishing %s first", mRecording.path.c_str());
    FinishRecording();
  }
  ClearSettings();
  return 0;
}

long MovieRecordServer::AcceptSetting(const char* command) {
  if (!mQueue) return 0;
  // The writer was opened with the settings of Prepare; the segments are checked against
  // those. A change now would describe a movie that is not the one being written.
  KTN_LOG("%s while %s is being recorded: refused until Stop or Begin", command, mRecording.path.c_str());
  return EINVAL;
}

long MovieRecordServer::SetVideoEnabled(bool enabled) {
  mVideoEnabled = enabled;
  return 0;
}

long MovieRecordServer::SetAudioEnabled(bool enabled) {
  mAudioEnabled = enabled;
  return 0;
}

long MovieRecordServer::SetFilePath(const char* path) {
  mFilePath = path;
  return 0;
}

long MovieRecordServer::Prepare() {
  if (mQueue) {
    // A new take over the one open would cut it off, and with it the frames already
    // acknowledged.
    KTN_LOG("Prepare while %s is being recorded: refused until Stop or Begin", mRecording.path.c_str());
    return EINVAL;
  }
  const RecorderSettings& asked = Settings();
  MovieSettings settings;
  settings.path = asked.mFilePath;
  settings.videoEnabled = asked.mVideoEnabled;
  settings.codec = FindServerCodec(static_cast<uint32_t>(asked.mVideoCodecType));
  if (asked.mVideoEnabled && !settings.codec) {
    KTN_LOG("Codec type %s is not one this server writes", Util::Printer::Fcc(asked.mVideoCodecType));
    return EINVAL;
  }
  settings.deviceFormat = DeviceInputFormat(static_cast<uint32_t>(asked.mVideoCodecType));
  settings.width = asked.mVideoWidth;
  settings.height = asked.mVideoHeight;
  settings.frameDuration = asked.mVideoDuration;
  settings.timescale = asked.mVideoTimescale;
  settings.pixelAspectX = asked.mPixelAspectRatioX;
  settings.pixelAspectY = asked.mPixelAspectRatioY;
  settings.quality = asked.mVideoCodecQuality;
  settings.audioEnabled = asked.mAudioEnabled;
  settings.channels = asked.mAudioChannels;
  settings.bitsPerSample = asked.mAudioType;
  settings.sampleRate = asked.mAudioRate;
  if (long rc = mWriter.Open(settings)) return rc;

  mRecording = settings;
  mVideoRowBytes = mWriter.VideoRowBytes();
  uint64_t budget = mOptions.backlogBytes;
  if (!budget) {
    // About two and a half seconds of video, and never less than two frames.
    uint64_t frameBytes = settings.videoEnabled ? mVideoRowBytes * static_cast<uint64_t>(settings.height) : 0;
    double framesPerSecond = settings.videoEnabled ? static_cast<double>(settings.timescale) /
                                                         static_cast<double>(settings.frameDuration)
                                                   : 0;
    uint64_t frames = static_cast<uint64_t>(framesPerSecond * kBacklogSeconds + 0.999);
    budget = frameBytes * (frames > 2 ? frames : 2);
  }
  mNextFrame = 0;
  mNextSample = 0;
  mDroppedFrames = 0;
  mQueue.reset(new WriteQueue(budget, [this](MediaItem& item) { return WriteItem(item); }, mOptions.writeDelayMillis));
  return 0;
}

long MovieRecordServer::AcceptSegment(bool enabled, const char* media, const char* key, unsigned long long size,
                                      std::unique_ptr<Core::SharedMemory>& segment) {
  if (!mQueue || !enabled) {
    KTN_LOG("No prepared %s recording to take a segment", media);
    return EINVAL;
  }
  if (long rc = mQueue->FirstError()) return rc;  // the recording has stopped taking media
  return MapSegment(key, size, segment);
}

long MovieRecordServer::MapSegment(const char* key, unsigned long long size,
                                   std::unique_ptr<Core::SharedMemory>& segment) {
  segment.reset(new Core::SharedMemory(key));
  // Only a segment of this user's, closed to others and of the announced size is read.
  // Its descriptor keeps the contents once the plug-in has removed the name.
  return segment->OpenTrusted(getuid(), size);
}

long MovieRecordServer::MapVideo(unsigned long long size) {
  std::unique_ptr<Core::SharedMemory> segment;
  if (long rc = AcceptSegment(mRecording.videoEnabled, "video", kVideoShmKey, size, segment)) return rc;
  // Whole rows of the device's format at the height the movie was opened with.
  uint64_t rows = size / mVideoRowBytes;
  uint64_t height = static_cast<uint64_t>(mRecording.height);
  // Compressed types take NTSC's 486 lines for their 480; nothing else is implied.
  bool rowsImplied = rows == height || (mRecording.codec->compressed && height == 480 && rows == 486);
  if (size == 0 || size % mVideoRowBytes != 0 || !rowsImplied) {
    KTN_LOG("Video segment of %llu bytes is not %d rows of %llu bytes", size, mRecording.height,
            static_cast<unsigned long long>(mVideoRowBytes));
    return EINVAL;
  }
  MediaItem item;
  item.video = true;
  item.segment = std::move(segment);
  item.position = mNextFrame++;
  if (!mQueue->PushVideo(std::move(item))) {
    // The frame's slot in time stays empty, so later frames and the sound keep their times;
    // the movie shows it empty as soon as the frames queued before it are written.
    ++mDroppedFrames;
    mQueue->PushEmptySlots(mNextFrame);
    return kDroppedFramesStatus;
  }
  return 0;
}

long MovieRecordServer::MapAudio(unsigned long long size) {
  std::unique_ptr<Core::SharedMemory> segment;
  if (long rc = AcceptSegment(mRecording.audioEnabled, "audio", kAudioShmKey, size, segment)) return rc;
  // Sample frames of the format the movie was opened with (checked then: never empty).
  uint64_t frameBytes = static_cast<uint64_t>(mRecording.channels) * static_cast<uint64_t>(mRecording.bitsPerSample / 8);
  // Whole sample frames, and no more than a second of them: a packet is one frame's sound.
  if (size == 0 || size % frameBytes != 0 || size > frameBytes * static_cast<uint64_t>(mRecording.sampleRate)) {
    KTN_LOG("Audio segment of %llu bytes is not up to a second of whole sample frames of %llu bytes", size,
            static_cast<unsigned long long>(frameBytes));
    return EINVAL;
  }
  MediaItem item;
  item.segment = std::move(segment);
  item.position = mNextSample;
  mNextSample += static_cast<int64_t>(size / frameBytes);
  mQueue->PushAudio(std::move(item));
  return 0;
}

long MovieRecordServer::SkipVideo(unsigned long long frames) {
  if (!mQueue || !mRecording.videoEnabled) {
    KTN_LOG("No prepared video recording to skip %llu frames in", frames);
    return EINVAL;
  }
  if (long rc = mQueue->FirstError()) return rc;
  if (frames > kMostSkippedFrames) {
    KTN_LOG("%llu skipped frames is more than a recording holds", frames);
    return EINVAL;
  }
  if (frames == 0) return 0;
  mNextFrame += static_cast<int64_t>(frames);
  // Shown in the movie once the frames queued before are written, not only when the next
  // picture comes: a reader of the growing take counts the slots given up as they happen.
  mQueue->PushEmptySlots(mNextFrame);
  return 0;
}

long MovieRecordServer::WriteItem(MediaItem& item) {
  if (item.video && !item.segment) return mWriter.MarkSlotsEmptyBefore(item.position);
  if (item.video) return mWriter.WriteVideo(*item.segment, item.position);
  return mWriter.WriteAudio(*item.segment, item.position);
}

long MovieRecordServer::FinishRecording() {
  if (!mQueue) return 0;
  mQueue->Drain();
  long writeError = mQueue->FirstError();
  mQueue.reset();
  long finishError = mWriter.Finish(mNextFrame);
  return writeError ? writeError : finishError;
}

long MovieRecordServer::Stop() {
  return FinishRecording();
}

long MovieRecordServer::InputEnded() {
  return FinishRecording();
}

}  // namespace KTN
