// Writes one QuickTime movie with FFmpeg: the file, its streams and encoders, samples, trailer.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "Core/SharedMemory.h"
#include "Server/CodecTable.h"
#include "Server/FragmentWriter.h"
#include "Server/FullRangeConverter.h"
#include "Server/SignalMonitor.h"

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

  // The most of a take kept in the page cache behind the write head (0: the default); for
  // the movies opened from here on.
  void SetCacheWindow(uint64_t bytes) { mFragments.SetCacheWindow(bytes); }
  // Whether the movies opened from here on get their frame-hash sidecar (the default).
  void SetFrameHashes(bool on) { mFrameHashes = on; }
  // Whether the movies opened from here on have their pictures and sound measured into their
  // levels and events sidecars (the default; see SignalMonitor).
  void SetMeasurement(bool on) { mMeasurement = on; }

  // Checks the settings (22 with the reason when impossible), makes the streams and
  // encoders, creates the file and writes the header, and beside it the sidecar of its
  // frame hashes (MOVIE.framehash, emptied if there is one), unless they are off, and the
  // sidecars of its measured levels and events (MOVIE.levels, MOVIE.events), unless
  // measurement is off; sidecars of a take this one replaces that it does not write are
  // removed. Measurement's sidecars that cannot be made are said and done without. The path is a plain file's, never a
  // protocol or URL; what is there already must be a regular file (22 for a FIFO, a device
  // or a folder). The movie's lock (MovieLock) is taken before its first byte and held
  // until Finish has finished it: 16 (EBUSY) with a line naming the writer when another
  // process holds it, and the file is left as it was.
  long Open(const MovieSettings& settings);

  // Bytes a video segment must hold for `rows` device rows; the row size of the device
  // format at the configured width.
  uint64_t VideoRowBytes() const;

  // Writes frame number frameIndex (its time is frameIndex frame durations) from the rows
  // of the segment (opened, not mapped), which the caller has checked. Uncompressed rows
  // go from the segment to the file inside the kernel; the compressed types read a copy
  // of the segment to encode it. A segment its maker has shrunk since it was opened is
  // left out with one line (its slot stays empty) and the recording goes on: 0.
  long WriteVideo(Core::SharedMemory& segment, int64_t frameIndex);
  // Writes the opened segment's interleaved sample frames starting at sample number
  // firstSample; a shrunk segment is left out as in WriteVideo.
  long WriteAudio(Core::SharedMemory& segment, int64_t firstSample);

  // The frame slots before frame number nextFrame that follow the last picture have no
  // picture (given up or dropped): that picture holds the screen through them, in the
  // growing movie already (four bytes of its fragment rewritten in place), so that a reader
  // of the take counts them now rather than when the next picture comes. Pictures an
  // encoder still holds come out with the next pictures, the last of them taking the slots;
  // slots marked again before any picture comes have the encoder give them out at once
  // (and start afresh). Nothing before the first picture.
  long MarkSlotsEmptyBefore(int64_t nextFrame);

  // Flushes the encoder, writes the index, closes the file and lets go of its lock.
  // videoSlots, when known, is the number of frame slots the take has: slots after the last
  // picture (given up or dropped) are held by that picture, so that the pictures last as
  // long as the sound.
  // Returns the first error of the recording or of finishing it.
  long Finish(int64_t videoSlots = -1);

  bool IsOpen() const { return mFormat != nullptr; }

 private:
  // Checks what Open needs; 22 with one failure line naming the reason.
  long CheckSettings(const MovieSettings& settings) const;
  // Opens the settings' path into mFd: checked to be a regular file, locked, then emptied.
  long OpenMovieFile();
  // Closes mFd, which lets go of the movie's lock.
  void CloseMovieFile();
  // FFmpeg's output callbacks on mFd (opaque is the writer): every byte or an AVERROR.
  static int WriteToMovie(void* opaque, uint8_t* bytes, int size);
  static int64_t SeekInMovie(void* opaque, int64_t offset, int whence);
  // Frees FFmpeg's output context on mFd (the descriptor stays open).
  void FreeIo();
  long AddVideoStream();
  // Makes and opens mEncoder for the configured codec, as the video stream describes it.
  long OpenEncoder();
  // Writes every picture the encoder holds, then opens a fresh encoder in its place.
  long RestartEncoder();
  long AddAudioStream();
  // Starts measuring the take into its levels and events sidecars, or removes those of the
  // take it replaces (measurement off). Never fails the take.
  void OpenSignalMonitor();
  // The sidecar's first lines: its format, then each stream's timescale and description.
  std::string SidecarHeader() const;
  // Sends a frame (null: flush) to the encoder and writes what comes out.
  long Encode(AVFrame* frame);
  // Writes an encoded packet (pts and duration in the encoder's time base) as one
  // fragment and lets go of it; records and returns errors.
  long WritePacket(AVPacket* packet);
  // Makes the last picture written last until frame slot nextFrame, when it ends before
  // (as many slots as its duration field holds at most); records and returns errors.
  long HoldLastPicture(int64_t nextFrame);
  // The picture of frame slot frameIndex, one slot long, of size bytes.
  FragmentWriter::Sample PictureSample(int64_t frameIndex, uint32_t size) const;
  // Records a failure as the recording's first error (if it is) and returns it.
  long Record(long error);
  // Frees every FFmpeg object; the movie's descriptor (and lock) stays with the writer.
  void Release();

  MovieSettings mSettings;
  int mFd = -1;                        // the movie, locked, from Open until Finish is done
  AVFormatContext* mFormat = nullptr;
  AVStream* mVideoStream = nullptr;
  AVStream* mAudioStream = nullptr;
  AVCodecContext* mEncoder = nullptr;  // null for uncompressed types
  SwsContext* mScaler = nullptr;
  // JPEG at the standard's own size: the range conversion it needs, in place of mScaler.
  std::unique_ptr<FullRangeConverter> mFullRange;
  AVFrame* mFrame = nullptr;           // the encoder's input picture, reused
  std::vector<uint8_t> mPicture;       // the segment's rows, read for the encoder; reused
  AVPacket* mPacket = nullptr;
  FragmentWriter mFragments;
  AVRational mFrameTime = {0, 1};      // one frame, in seconds
  PictureDescription mPictures = {};   // colours and field order, as far as known here
  int64_t mLastPicture = -1;           // frame number of the last picture written
  int64_t mLastSubmitted = -1;         // of the last picture written or given to the encoder
  int64_t mEmptyBefore = 0;            // the slots after the last picture and before this are empty
  bool mMarkedSinceSubmitted = false;  // slots were marked empty since the last picture came
  long mFirstError = 0;
  bool mFrameHashes = true;
  bool mMeasurement = true;
  SignalMonitor mSignal;
};

}  // namespace KTN
