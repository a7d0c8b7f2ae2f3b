// What the movie of a take that has ended holds, and the command that completes it.
#pragma once

#include <string>

namespace KTN {

// A take's movie is complete when it has its ordinary index and, where the host knows the
// first frame's timecode, its timecode track. Whatever keeps it from that (a server that
// died, a full disk, a folder removed mid-take, a stamp that could not be written) is told
// with what the movie holds and the exact command that completes it, so that the user never
// takes an unfinished movie for a finished one. Reads the movie when asked: call once the
// recording has stopped and the movie no longer changes.
class KeptMovie {
 public:
  // moviePath: absolute. startTimecode: the first frame's ("HH:MM:SS:FF"), or "" when the host
  // does not know it (the movie is then not expected to carry it).
  KeptMovie(const std::string& moviePath, const std::string& startTimecode);

  // What the movie of a failed recording holds, and the repair command when it was cut off
  // (always, with alwaysRepair: after a full disk its index or timecode may be missing).
  std::string WhatIsKept(bool alwaysRepair = false) const;
  // "" for a complete movie; otherwise what is missing, what the movie holds and the command
  // that completes it, in one line.
  std::string Incomplete() const;

 private:
  // The repair command as it can be pasted into a shell.
  std::string RepairCommand() const;

  std::string mPath;
  std::string mStartTimecode;
};

}  // namespace KTN
