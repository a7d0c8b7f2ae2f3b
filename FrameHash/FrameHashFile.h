// A frame-hash sidecar read whole: its header lines and its packets' lines, in the order they were written.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "FrameHash/FrameHashLine.h"

namespace KTN {

// What a sidecar holds. A last line without its line feed (a writer killed while writing it)
// is no line: torn says it was there. A value; any thread.
struct FrameHashFile {
  std::string header;               // the lines starting with '#', each with its line feed
  std::vector<FrameHashLine> lines;  // the data lines, in file order
  bool torn = false;

  // Reads the sidecar at path: 0; 2 (ENOENT) when there is none, without a line; 74
  // (EBADMSG) with one line naming the first line that is neither a comment nor a packet's;
  // or errno with one failure line.
  long Read(const std::string& path);
  // Writes the header and lines to path in place of what is there, through a file beside it
  // renamed over it once synced: a cut-off rewrite leaves the old sidecar. 0 or errno, with
  // one failure line.
  long Write(const std::string& path) const;
  // The lines of one stream, in order.
  std::vector<FrameHashLine> Stream(int stream) const;
};

}  // namespace KTN
