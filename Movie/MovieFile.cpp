// A movie file opened for reading or editing its boxes in place.
#include "Movie/MovieFile.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Util/FileIo.h"
#include "Util/Log.h"

namespace KTN {

MovieFile::~MovieFile() {
  if (mFd >= 0) close(mFd);
}

long MovieFile::Open(bool writable) {
  mFd = open(mPath.c_str(), (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC);
  if (mFd < 0) return Failed("open", errno);
  struct stat info;
  if (fstat(mFd, &info) != 0) return Failed("fstat", errno);
  mSize = static_cast<uint64_t>(info.st_size);
  return 0;
}

long MovieFile::Read(uint64_t offset, uint64_t size, std::vector<uint8_t>& bytes) {
  bytes.resize(size);
  long rc = Util::FileIo::ReadAll(mFd, bytes.data(), size, static_cast<int64_t>(offset));
  if (rc == ENODATA) {
    KTN_LOG("The movie %s ends inside a box at %llu", mPath.c_str(), static_cast<unsigned long long>(offset));
    return EIO;
  }
  return rc ? Failed("pread", rc) : 0;
}

long MovieFile::Write(uint64_t offset, const uint8_t* bytes, uint64_t size) {
  if (long rc = Util::FileIo::WriteAll(mFd, bytes, size, static_cast<int64_t>(offset))) return Failed("pwrite", rc);
  if (offset + size > mSize) mSize = offset + size;
  return 0;
}

long MovieFile::Truncate(uint64_t size) {
  if (ftruncate(mFd, static_cast<off_t>(size)) != 0) return Failed("ftruncate", errno);
  mSize = size;
  return 0;
}

long MovieFile::Sync() {
  return fsync(mFd) == 0 ? 0 : Failed("fsync", errno);
}

long MovieFile::Hide(uint64_t offset) {
  static const uint8_t kFree[4] = {'f', 'r', 'e', 'e'};
  return Write(offset + 4, kFree, 4);
}

long MovieFile::TopLevelBoxes(std::vector<Box>& boxes, bool* cut, uint64_t from) {
  boxes.clear();
  if (cut) *cut = false;
  std::vector<uint8_t> header;
  for (uint64_t at = from; at + 8 <= mSize;) {
    if (long rc = Read(at, at + 16 <= mSize ? 16 : 8, header)) return rc;
    BoxReader reader(header.data(), header.size());
    Box box;
    box.offset = at;
    box.size = reader.U32();
    box.type = reader.U32();
    if (box.size == 1 && header.size() == 16) {
      box.size = reader.U64();
      box.header = 16;
    } else if (box.size == 0) {
      box.size = mSize - at;
    }
    if (box.size < box.header || box.size > mSize - at) {
      if (cut) *cut = true;
      break;
    }
    boxes.push_back(box);
    at += box.size;
  }
  return 0;
}

long MovieFile::Failed(const char* call, long error) {
  KTN_LOG("%s(%s) failed with errno %ld (%s)", call, mPath.c_str(), error, strerror(static_cast<int>(error)));
  return error;
}

}  // namespace KTN
