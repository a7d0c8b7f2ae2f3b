// What the host program shows while it records: the plug-in's status, frames, rate and time.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <chrono>
#include <string>

namespace KTN {

// On a terminal one line is redrawn in place with a progress bar; elsewhere a plain line is
// written about once a second.
class ProgressDisplay {
 public:
  explicit ProgressDisplay(FILE* out);

  // status: the plug-in's last status text; frames: its frame count; expected: the frames
  // the recording will hold (0: unknown).
  void Update(const std::string& status, int64_t frames, int64_t expected, double frameRate);
  // Ends the redrawn line.
  void Finish();

 private:
  FILE* mOut;
  bool mTerminal;
  std::chrono::steady_clock::time_point mStart;
  std::chrono::steady_clock::time_point mLastPlain;
  bool mDrawn = false;
};

}  // namespace KTN
