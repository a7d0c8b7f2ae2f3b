// Measures a take's pictures and sound as the server writes them, and keeps its levels and events sidecars.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>

#include "Server/FragmentWriter.h"
#include "Signal/PictureMeter.h"
#include "Signal/SignalEventFinder.h"
#include "Signal/SoundMeter.h"

namespace KTN {

// Every picture and every slot of sound is measured from the bytes the server holds once
// anyway: an uncompressed sample as its megabytes pass through the writer's buffer
// (FragmentWriter's BytesSeen), a picture to be encoded from the copy the encoder reads,
// before encoding. Each slot's figures are appended to MOVIE.levels as soon as it is
// complete, and each event to MOVIE.events once its run has ended (Signal/SlotLevels.h and
// Signal/SignalEvent.h describe the lines), so that the host follows both live and reads
// them after the take. Both files are opened with O_APPEND: the plug-in appends the
// timecode breaks it finds to the same events file, a whole line a write.
//
// The figures are the take's information, not the take: a sidecar that cannot be written
// is said once and left as it is, and the recording goes on. Used by the server's writer
// thread.
class SignalMonitor {
 public:
  // What the take's samples are.
  struct Layout {
    bool pictures = false;
    uint32_t pixelFormat = 0;  // of the rows measured: the card's
    int width = 0;
    int rows = 0;
    uint64_t rowBytes = 0;
    int64_t frameDuration = 0;  // a slot, in timescale units
    int64_t timescale = 0;
    int channels = 0;           // 0: no sound
    int bitsPerSample = 0;
    int sampleRate = 0;
  };

  SignalMonitor();
  ~SignalMonitor();
  SignalMonitor(const SignalMonitor&) = delete;
  SignalMonitor& operator=(const SignalMonitor&) = delete;

  // Creates (or empties) the levels and events sidecars of the movie at moviePath, regular
  // files only, and writes the levels' header. 0, or errno with one line (the take can go
  // on without them).
  long Open(const std::string& moviePath, const Layout& layout);
  bool IsOpen() const { return mLevelsFd >= 0; }

  // The picture of frame slot slot is being written: what sees its bytes (never null while
  // open, null otherwise). EndPicture says whether all of them reached the movie.
  FragmentWriter::BytesSeen* BeginPicture(int64_t slot);
  void EndPicture(bool written);
  // A picture measured whole from its rows (the copy an encoder reads).
  void MeasurePicture(int64_t slot, const uint8_t* rows, size_t size);
  // The sound from sample frame firstSample is being written; as for pictures.
  FragmentWriter::BytesSeen* BeginSound(int64_t firstSample);
  void EndSound(bool written);

  // The take ended with slots frame slots (-1: unknown): the last slot of sound and the runs
  // still open are written, the sidecars synced and closed.
  void Finish(int64_t slots);

 private:
  class PictureBytes;
  class SoundBytes;
  // The levels lines of slots of sound complete, and the events they end.
  void Sounds(const std::vector<SoundReading>& readings);
  // Appends what was found (levels lines in mLines, events from the finder) to the sidecars.
  void Flush();
  void Closing();
  // Appends text to fd (O_APPEND: one write); a failure is said once and stops the sidecars.
  void Append(int fd, const std::string& text, const char* which);

  std::string mPath;
  int mLevelsFd = -1;
  int mEventsFd = -1;
  std::unique_ptr<PictureMeter> mPictures;
  std::unique_ptr<SoundMeter> mSound;
  std::unique_ptr<SignalEventFinder> mFinder;
  std::unique_ptr<PictureBytes> mPictureBytes;
  std::unique_ptr<SoundBytes> mSoundBytes;
  int64_t mPictureSlot = 0;   // of the picture being written
  int64_t mLastSlot = -1;     // of the last picture measured
  std::string mLines;         // levels lines not yet appended
  bool mFailed = false;
};

}  // namespace KTN
