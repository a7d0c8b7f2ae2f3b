// Writes one QuickTime movie with FFmpeg: the file, its streams and encoders, samples, trailer.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>

#include "Core/SharedMemory.h"
#include "Server/CodecTable.h"
#include "Server/FragmentWriter.h"
#include "Server/FullRangeConverter.h"

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;
struct SwsContext;

namespace KTN {

// What to write, as the recorder's setters configured it.
struct MovieSettings {
  std::string path;
  bool videoEnabled = false;
  const ServerCodec* codec = nullptr;
  uint32_t deviceFormat = 0;  // pixel format of the arriving rows
  int width = 0;              // pixels of the standard (the rows' width)
  int height = 0;             // lines to store (before any scaling)
  int64_t frameDuration = 0;  // in timescale units
  int64_t timescale = 0;      // units per second
  int pixelAspectX = 0;
  int pixelAspectY = 0;
  int quality = 0;            // 0..1023, 1023 the best the encoder has
  bool audioEnabled = false;
  int channels = 0;
  int bitsPerSample = 0;      // 16, 24 or 32, signed little-endian
  int sampleRate = 0;         // Hz
};

// FFmpeg writes the movie's header and encodes the compressed types; every sample then
// goes to the file as a fragment of its own (FragmentWriter). Used by one thread at a time
// (the server's writer thread while recording). Every operation returns 0 or an errno
// value with one failure line; FFmpeg errors that carry no errno read as 5 (EIO).
class MovieWriter {
 public:
  MovieWriter();
  // Finishes a movie still open, so nothing handed over is lost.
  ~MovieWriter();

  MovieWriter(const MovieWriter&) = delete;
  MovieWriter& operator=(const MovieWriter&) = delete;

  // Checks the settings (22 with the reason when impossible), creates the file, its
  // streams and encoders and writes the header.
  long Open(const MovieSettings& settings);

  // Bytes a video segment must hold for `rows` device rows; the row size of the device
  // format at the configured width.
  uint64_t VideoRowBytes() const;

  // Writes frame number frameIndex (its time is frameIndex frame durations) from the rows
  // of the segment (opened, not mapped), which the caller has checked. Uncompressed rows
  // go from the segment to the file inside the kernel; the compressed types map the
  // segment to encode it.
  long WriteVideo(Core::SharedMemory& segment, int64_t frameIndex);
  // Writes the opened segment's interleaved sample frames starting at sample number
  // firstSample.
  long WriteAudio(Core::SharedMemory& segment, int64_t firstSample);

  // Flushes the encoder, writes the index and closes the file. videoSlots, when known, is
  // the number of frame slots the take has: slots after the last picture (given up or
  // dropped) are held by that picture, so that the pictures last as long as the sound.
  // Returns the first error of the recording or of finishing it.
  long Finish(int64_t videoSlots = -1);

  bool IsOpen() const { return mFormat != nullptr; }

 private:
  // Checks what Open needs; 22 with one failure line naming the reason.
  long CheckSettings(const MovieSettings& settings) const;
  long AddVideoStream();
  long AddAudioStream();
  // Sends a frame (null: flush) to the encoder and writes what comes out.
  long Encode(AVFrame* frame);
  // Writes an encoded packet (pts and duration in the encoder's time base) as one
  // fragment and lets go of it; records and returns errors.
  long WritePacket(AVPacket* packet);
  // The picture of frame slot frameIndex, one slot long, of size bytes.
  FragmentWriter::Sample PictureSample(int64_t frameIndex, uint32_t size) const;
  // Records a failure as the recording's first error (if it is) and returns it.
  long Record(long error);
  // Frees every FFmpeg object; the file is closed if still open.
  void Release();

  MovieSettings mSettings;
  AVFormatContext* mFormat = nullptr;
  AVStream* mVideoStream = nullptr;
  AVStream* mAudioStream = nullptr;
  AVCodecContext* mEncoder = nullptr;  // null for uncompressed types
  SwsContext* mScaler = nullptr;
  // JPEG at the standard's own size: the range conversion it needs, in place of mScaler.
  std::unique_ptr<FullRangeConverter> mFullRange;
  AVFrame* mFrame = nullptr;           // the encoder's input picture, reused
  AVPacket* mPacket = nullptr;
  FragmentWriter mFragments;
  AVRational mFrameTime = {0, 1};      // one frame, in seconds
  PictureDescription mPictures = {};   // colours and field order, as far as known here
  int64_t mLastPicture = -1;           // frame number of the last picture written
  long mFirstError = 0;
};

}  // namespace KTN
