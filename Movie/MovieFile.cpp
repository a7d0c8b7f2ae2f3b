// A movie file opened for reading or editing its boxes in place.
#include "Movie/MovieFile.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "Movie/BoxFlags.h"
#include "Util/FileIo.h"
#include "Util/Log.h"
#include "Util/PageCache.h"

namespace KTN {

MovieFile::~MovieFile() {
  if (mFd < 0) return;
  // What was written is on the disk once a writer has synced it; pages still dirty stay.
  if (mTouchedEnd > mTouchedBegin) Util::PageCache::DropClean(mFd, mTouchedBegin, mTouchedEnd - mTouchedBegin);
  close(mFd);
}

void MovieFile::Touched(uint64_t offset, uint64_t size) {
  mTouchedBegin = std::min(mTouchedBegin, offset);
  mTouchedEnd = std::max(mTouchedEnd, offset + size);
}

long MovieFile::Open(bool writable) {
  mFd = open(mPath.c_str(), (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC);
  if (mFd < 0) return Failed("open", errno);
  struct stat info;
  if (fstat(mFd, &info) != 0) return Failed("fstat", errno);
  mSize = static_cast<uint64_t>(info.st_size);
  Util::PageCache::ReadSparsely(mFd);
  return 0;
}

long MovieFile::Read(uint64_t offset, uint64_t size, std::vector<uint8_t>& bytes) {
  bytes.resize(size);
  Touched(offset, size);
  long rc = Util::FileIo::ReadAll(mFd, bytes.data(), size, static_cast<int64_t>(offset));
  if (rc == ENODATA) {
    KTN_LOG("The movie %s ends inside a box at %llu", mPath.c_str(), static_cast<unsigned long long>(offset));
    return EIO;
  }
  return rc ? Failed("pread", rc) : 0;
}

long MovieFile::Write(uint64_t offset, const uint8_t* bytes, uint64_t size) {
  Touched(offset, size);
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
  const uint8_t type[4] = {static_cast<uint8_t>(BoxTypes::kFree >> 24), static_cast<uint8_t>(BoxTypes::kFree >> 16),
                          static_cast<uint8_t>(BoxTypes::kFree >> 8), static_cast<uint8_t>(BoxTypes::kFree)};
  return Write(offset + 4, type, sizeof type);
}

long MovieFile::Failed(const char* call, long error) {
  KTN_LOG("%s(%s) failed with errno %ld (%s)", call, mPath.c_str(), error, strerror(static_cast<int>(error)));
  return error;
}

}  // namespace KTN
