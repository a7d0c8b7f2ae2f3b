// Where a take goes: the path the user gave, made absolute, and why a movie cannot be written there.
#pragma once

#include <string>

namespace KTN {

// The editor hands the plug-in absolute paths, and the recording server runs in a folder of
// its own: a path the user typed is made absolute here, and checked before anything starts,
// so that the user hears the reason rather than a refusal.
class MoviePath {
 public:
  // path against the current folder when it is relative; false (and *problem said) when the
  // current folder cannot be told.
  static bool MakeAbsolute(std::string& path, std::string* problem);
  // Why a movie cannot be written at path, in the user's words, or "" when it can: no
  // folder to write in, or something at the path that is not a regular file (a folder, a
  // FIFO, a device such as /dev/null: opening them could block, or write nowhere), or a
  // movie another process is writing now (named). Nothing is opened, so nothing blocks.
  static std::string Problem(const std::string& path);
  // A regular file is at path already: the user must say that it may be replaced.
  static bool Exists(const std::string& path);
};

}  // namespace KTN
