// A text file followed as another process appends to it: the whole lines added since the last look.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace KTN {

// Follows one file by its name. The file may not exist yet (it is looked for again at each
// call) and may be cut back to nothing (a new take under the same name): it is then read
// again from its start. A last line without its feed is left for a later call, when it is
// whole. Only a regular file is read, never in a way that could block. Used by one thread
// at a time.
class GrowingLines {
 public:
  explicit GrowingLines(std::string path) : mPath(std::move(path)) {}
  ~GrowingLines();

  GrowingLines(const GrowingLines&) = delete;
  GrowingLines& operator=(const GrowingLines&) = delete;

  // Appends the whole lines (each with its feed) added since the last call to lines, at
  // most about maxBytes of them; 0 also when the file is not there (yet), or errno with one
  // line (a file that is not a regular one: 22).
  long ReadNew(std::vector<std::string>* lines, size_t maxBytes = 4 << 20);
  // Whether the last ReadNew found the file cut back, and read its lines again from its start.
  bool Restarted() const { return mRestarted; }
  // Whether the file has been found, and is followed.
  bool Found() const { return mFd >= 0; }

 private:
  std::string mPath;
  int mFd = -1;
  uint64_t mOffset = 0;   // of the first byte not yet read
  std::string mPartial;   // the last line read so far, without its feed
  bool mRestarted = false;
};

}  // namespace KTN
