// Appends a take's frame-hash lines to its sidecar as the samples are written, so that the sidecar never lags the movie.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "FrameHash/FrameHashLine.h"

namespace KTN {

// The sidecar takes each sample's lines before the sample's last bytes reach the movie: a
// writer killed at any moment leaves a sidecar that describes every whole sample of the
// movie, and at most the one sample after them, which repair trims. A picture's line is
// written at once with the duration known then, and rewritten in place when the empty slots
// after it lengthen it (the movie's fragment is rewritten the same way); repair completes
// the duration of the last picture of a take cut off.
//
// Lines of a sample whose fragment did not reach the movie whole are taken back with it
// (CutBack). Used by the thread that writes the movie; every operation returns 0 or an
// errno value with one failure line, and after the first failure answers that failure.
class FrameHashSidecar {
 public:
  FrameHashSidecar() = default;
  ~FrameHashSidecar();
  FrameHashSidecar(const FrameHashSidecar&) = delete;
  FrameHashSidecar& operator=(const FrameHashSidecar&) = delete;

  // Creates the sidecar at path, or empties the one there (the take it described is being
  // replaced), and writes header. Only a regular file is written: a FIFO, device or folder
  // there is refused with 22 (EINVAL).
  long Open(const std::string& path, const std::string& header);
  bool IsOpen() const { return mFd >= 0; }
  const std::string& Path() const { return mPath; }

  // Appends the lines of one sample; a picture's line (picture set) is the one Lengthen
  // rewrites once Commit has said its fragment is whole.
  long Append(const std::vector<FrameHashLine>& lines, bool picture);
  // The sample appended last reached the movie whole.
  void Commit();
  // Takes back the lines appended since the last Commit.
  long CutBack();
  // The last committed picture lasts duration (in its stream's timescale) from here on.
  long LengthenLastPicture(int64_t duration);

  // Takes back what was not committed, syncs the sidecar to the disk (with the movie, at the
  // end of the take) and closes it. Returns the first error.
  long Close();

 private:
  long Failed(const char* call, long error);

  std::string mPath;
  int mFd = -1;
  uint64_t mSize = 0;        // bytes written
  uint64_t mCommitted = 0;   // bytes that describe whole samples of the movie
  int64_t mPending = -1;     // where the picture appended last starts, until committed
  int64_t mLastPicture = -1; // where the last committed picture's line starts
  FrameHashLine mPictureLine;  // that line
  FrameHashLine mPendingLine;
  long mFirstError = 0;
};

}  // namespace KTN
