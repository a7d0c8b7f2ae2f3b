// The recording server: the recorder's commands writing real QuickTime movies.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>

#include "IPC/QTRecordServerIPC.h"
#include "Server/MovieWriter.h"
#include "Server/WriteQueue.h"

namespace KTN {

// Knobs for tests and diagnostics, from the server's command line (the plug-in passes none).
struct ServerOptions {
  uint64_t backlogBytes = 0;     // 0: about two and a half seconds of video
  unsigned writeDelayMillis = 0; // hold back every write, as a slow disk would
  uint64_t cacheWindowBytes = 0; // the most of a take kept in the page cache (0: WriteBehind's default)
  bool frameHashes = true;       // every sample hashed into the take's sidecar
  bool measurement = true;       // every slot measured into the take's levels and events
};

// Runs on the command loop's thread; the writing happens on the WriteQueue's thread.
class MovieRecordServer : public QTRecordServerIPC {
 public:
  explicit MovieRecordServer(const ServerOptions& options);
  // Finishes a recording still open.
  ~MovieRecordServer() override;

  // 'appl' for every codec type written here, 0 for any other.
  long GetCodecManufacturer(int codecType) override;
  // A fresh configuration: every setting back to zero (RecorderSettings); a recording still
  // open is finished first.
  long Begin() override;
  // The setters change the configuration of the next Prepare. While a recording is open
  // (from Prepare to Stop or Begin) they are refused with 22 and a line, and change nothing.
  long SetVideoEnabled(bool enabled) override;
  long SetAudioEnabled(bool enabled) override;
  long SetFilePath(const char* path) override;
  // Creates the movie that the settings describe and writes its header: 22 with the reason
  // for a missing path, a path that is no regular file or an impossible configuration, 16
  // (EBUSY) when another process is writing that movie, the errno when the file cannot be
  // created. 22 while a recording is open: it goes on untouched.
  long Prepare() override;
  // Open the named segment read-only, check it against the configuration the movie was
  // opened with, queue it and answer at once: 0, 7 for a frame dropped because the
  // backlog is full (its time slot is kept, and shows empty as SkipVideo's do), 22 for a
  // segment that breaks the configuration (nothing is written), or the recording's first
  // write error (28 once the disk is full).
  long MapVideo(unsigned long long size) override;
  long MapAudio(unsigned long long size) override;
  // Writes everything queued, the index and closes the movie: 0 or the recording's first
  // write error. 0 when no recording is open.
  long Stop() override;
  // The plug-in gave up the pictures of the next `frames` frame slots: they stay empty, as
  // the slots of frames dropped here do, and the last picture written before them holds the
  // screen through them in the growing movie as soon as the writer has caught up. 22
  // without a video recording open.
  long SkipVideo(unsigned long long frames) override;
  // The plug-in's end of the pipe has gone: finish any open movie.
  long InputEnded() override;

 protected:
  long AcceptSetting(const char* command) override;

 private:
  // Checks that a recording with this medium enabled is open and has not failed, then maps
  // the segment: 22 when none is, the recording's first write error, or MapSegment's result.
  long AcceptSegment(bool enabled, const char* media, const char* key, unsigned long long size,
                     std::unique_ptr<Core::SharedMemory>& segment);
  // Maps the segment named key read-only once it is known to be this user's, closed to
  // others and of size bytes.
  long MapSegment(const char* key, unsigned long long size, std::unique_ptr<Core::SharedMemory>& segment);
  long WriteItem(MediaItem& item);
  long FinishRecording();

  const ServerOptions mOptions;

  MovieWriter mWriter;
  std::unique_ptr<WriteQueue> mQueue;  // exists while a recording is open
  MovieSettings mRecording;            // what the open recording's writer was opened with
  uint64_t mVideoRowBytes = 0;
  int64_t mNextFrame = 0;   // frame number of the next MapVideo, dropped and skipped frames included
  int64_t mNextSample = 0;  // sample number of the next MapAudio
  uint64_t mDroppedFrames = 0;
};

}  // namespace KTN
