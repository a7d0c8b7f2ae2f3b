// What a movie file holds, read from its boxes: its layout, its pictures and frame slots, its sound and timecode.
#pragma once

#include <stdint.h>

#include <string>

namespace KTN {

// Read without FFmpeg from the movie's own index, whether the take was finished (one moov
// indexing every sample), cut off or still being written (fragments), so that the host side
// can say what a movie holds.
struct MovieSummary {
  enum class Layout {
    kNotAMovie,   // no movie header: not a movie this system wrote, or not a movie at all
    kFragments,   // a take being written, or cut off before it was finished
    kFinished,    // one ordinary index
    kFinishCut,   // a finish cut off while hiding the fragment headers (repair completes it)
  };
  Layout layout = Layout::kNotAMovie;

  uint64_t pictures = 0;         // video samples
  uint64_t pictureSlots = 0;     // frame slots from the first picture to the end of the last
  uint32_t videoTimescale = 0;   // of the video track
  uint32_t frameDuration = 0;    // one frame slot, in videoTimescale units
  uint64_t soundFrames = 0;      // sample frames of sound
  uint32_t soundRate = 0;

  bool hasFieldOrder = false;    // the pictures' description says their field order
  bool hasTimecode = false;      // a timecode track
  std::string startTimecode;     // its first frame, as HH:MM:SS:FF (';' before the frames at drop frame)

  // Frame slots without a picture: the frames dropped.
  uint64_t EmptySlots() const { return pictureSlots > pictures ? pictureSlots - pictures : 0; }
  // Picture slots a second; 0 when the movie gives no slot length.
  double PictureRate() const { return frameDuration ? static_cast<double>(videoTimescale) / frameDuration : 0; }

  // Reads the movie at path: 0, or errno with one failure line (a file that is not a
  // movie is not a failure: its layout says so).
  long Read(const std::string& path);
};

}  // namespace KTN
