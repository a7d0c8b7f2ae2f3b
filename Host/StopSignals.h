// The signals that end a take as the Stop button does: the terminal's Ctrl-C, Ctrl-\ and hang-up, and a kill.
#pragma once

#include <atomic>

namespace KTN {

// Ctrl-C and Ctrl-\ in the terminal, its hang-up (the window closed) and an ordinary kill
// (SIGTERM) do not end the program where it stands: they are noted, and the program stops
// its take as Stop does, so the movie is finished with its index and timecode. A reader of
// standard error that is gone (a pipe to tee, ended by the same Ctrl-C) makes a failed
// write, not the end of the take. Process-wide; Install from the main thread.
class StopSignals {
 public:
  static void Install();
  // Set once one of them has come; the handler writes it, any thread reads it.
  static const std::atomic<bool>& Received();
};

}  // namespace KTN
