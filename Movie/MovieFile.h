// A movie file opened for reading or editing its boxes in place, closed with the object.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace KTN {

// Every operation returns 0 or errno with one failure line naming the call and the movie.
// A movie is read box by box, far apart: the file is read without read-ahead, and the
// pages read or written through the object leave the page cache with it once they are on
// the disk, so that following, finishing or stamping a long take never brings it back into
// memory (a file in a memory-backed folder keeps its pages).
class MovieFile {
 public:
  explicit MovieFile(const std::string& path) : mPath(path) {}
  ~MovieFile();

  MovieFile(const MovieFile&) = delete;
  MovieFile& operator=(const MovieFile&) = delete;

  // Opens the movie for reading and writing, or for reading only.
  long Open(bool writable = true);
  uint64_t Size() const { return mSize; }

  long Read(uint64_t offset, uint64_t size, std::vector<uint8_t>& bytes);
  long Write(uint64_t offset, const uint8_t* bytes, uint64_t size);
  long Truncate(uint64_t size);
  long Sync();
  // Turns the box at offset into a 'free' box of the same size, which readers skip.
  long Hide(uint64_t offset);

 private:
  long Failed(const char* call, long error);

  // Notes bytes [offset, offset + size) as read or written through the object.
  void Touched(uint64_t offset, uint64_t size);

  std::string mPath;
  int mFd = -1;
  uint64_t mSize = 0;
  uint64_t mTouchedBegin = UINT64_MAX;  // the bytes read or written lie in [begin, end)
  uint64_t mTouchedEnd = 0;
};

}  // namespace KTN
