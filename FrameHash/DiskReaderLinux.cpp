// Reads a stretch of a file from the disk past the page cache on Linux (O_DIRECT, or its pages dropped first) in large aligned blocks on a reading thread.
#include "FrameHash/DiskReader.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "Util/FileIo.h"
#include "Util/Log.h"
#include "Util/PageCache.h"

namespace KTN {

DiskReader::~DiskReader() {
  {
    std::lock_guard<std::mutex> lock(mMutex);
    mStop = true;
  }
  mChanged.notify_all();
  if (mThread.joinable()) mThread.join();
  for (uint8_t* buffer : mBuffers) free(buffer);
  if (mFd >= 0) close(mFd);
}

long DiskReader::Open(const std::string& path) {
  mPath = path;
  mFd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_DIRECT);
  mDirect = mFd >= 0;
  if (mFd < 0 && errno == EINVAL) mFd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (mFd < 0) {
    long error = errno;
    KTN_LOG("open(%s) failed with errno %ld (%s)", path.c_str(), error, strerror(errno));
    return error;
  }
  return 0;
}

long DiskReader::ReadOrdinarily() {
  int fd = open(mPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    long error = errno;
    KTN_LOG("open(%s) failed with errno %ld (%s)", mPath.c_str(), error, strerror(errno));
    return error;
  }
  close(mFd);
  mFd = fd;
  mDirect = false;
  // What the cache holds of the file is dropped first, so that the reads go to the disk.
  Util::PageCache::DropClean(mFd, 0, mEnd);
  posix_fadvise(mFd, static_cast<off_t>(mBegin), static_cast<off_t>(mEnd - mBegin), POSIX_FADV_SEQUENTIAL);
  return 0;
}

long DiskReader::Start(uint64_t begin, uint64_t end) {
  mBegin = begin;
  mEnd = std::max(begin, end);
  for (size_t i = 0; i < kBlocks; ++i) {
    void* buffer = nullptr;
    if (int rc = posix_memalign(&buffer, kAlignment, kBlockBytes)) {
      KTN_LOG("posix_memalign(%zu) failed with errno %d (%s)", kBlockBytes, rc, strerror(rc));
      return rc;
    }
    mBuffers.push_back(static_cast<uint8_t*>(buffer));
  }
  mFree = mBuffers;
  if (!mDirect) {
    if (long rc = ReadOrdinarily()) return rc;
  }
  try {
    mThread = std::thread(&DiskReader::ReadLoop, this);
  } catch (const std::system_error& error) {
    KTN_LOG("std::thread failed with errno %d (%s)", error.code().value(), error.what());
    return error.code().value();
  }
  return 0;
}

void DiskReader::ReadLoop() {
  // Aligned to the page at both ends, as O_DIRECT reads must be; the consumer is handed only
  // the stretch asked for.
  uint64_t position = mBegin / kAlignment * kAlignment;
  const uint64_t end = (mEnd + kAlignment - 1) / kAlignment * kAlignment;
  long error = 0;
  while (position < end && !error) {
    uint8_t* buffer = nullptr;
    {
      std::unique_lock<std::mutex> lock(mMutex);
      mChanged.wait(lock, [this] { return mStop || !mFree.empty(); });
      if (mStop) return;
      buffer = mFree.back();
      mFree.pop_back();
    }
    const size_t want = static_cast<size_t>(std::min<uint64_t>(kBlockBytes, end - position));
    size_t got = 0;
    // A direct read ends short only at the end of the file: the next one would be unaligned.
    auto call = [&](size_t done) -> ssize_t {
      if (mDirect && done % kAlignment) return 0;
      return pread(mFd, buffer + done, want - done, static_cast<off_t>(position + done));
    };
    error = Util::FileIo::Transfer(want, Util::FileIo::Direction::kRead, call, &got);
    if (error == EINVAL && mDirect && got == 0 && mBytesRead == 0) {
      // The file system opened the file for O_DIRECT but refuses its reads.
      error = ReadOrdinarily();
      if (!error) error = Util::FileIo::Transfer(want, Util::FileIo::Direction::kRead, call, &got);
    }
    bool ended = error == ENODATA;
    if (ended) error = 0;
    if (error) KTN_LOG("pread(%s) failed with errno %ld (%s)", mPath.c_str(), error, strerror(static_cast<int>(error)));
    mBytesRead += got;
    if (!mDirect) Util::PageCache::DropClean(mFd, position, got);  // leaves no copy behind
    {
      std::lock_guard<std::mutex> lock(mMutex);
      mFilled.push_back({buffer, position, got});
    }
    mChanged.notify_all();
    position += got;
    if (ended) break;
  }
  std::lock_guard<std::mutex> lock(mMutex);
  mError = error;
  mDone = true;
  mChanged.notify_all();
}

bool DiskReader::Next(Block& block) {
  std::unique_lock<std::mutex> lock(mMutex);
  if (mLent) {
    mFree.push_back(mLent);
    mLent = nullptr;
    mChanged.notify_all();
  }
  for (;;) {
    mChanged.wait(lock, [this] { return !mFilled.empty() || mDone; });
    if (mFilled.empty()) return false;
    Filled filled = mFilled.front();
    mFilled.pop_front();
    // The part of the block inside the stretch asked for.
    const uint64_t from = std::max(filled.offset, mBegin);
    const uint64_t to = std::min(filled.offset + filled.size, mEnd);
    if (from >= to) {
      mFree.push_back(filled.buffer);
      mChanged.notify_all();
      continue;
    }
    mLent = filled.buffer;
    block.offset = from;
    block.data = filled.buffer + (from - filled.offset);
    block.size = static_cast<size_t>(to - from);
    return true;
  }
}

long DiskReader::Error() {
  std::lock_guard<std::mutex> lock(mMutex);
  return mError;
}

}  // namespace KTN
