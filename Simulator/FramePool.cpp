// The card's fixed ring of frame buffers.
#include "Simulator/FramePool.h"

#include <errno.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "Util/Log.h"

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23
#endif

namespace KTN {
namespace Sim {

FramePool::FramePool(size_t bufferBytes, size_t count) : mBufferBytes(bufferBytes), mCount(count) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  mStride = (bufferBytes + page - 1) / page * page;
  mMappedBytes = mStride * count;
  if (mMappedBytes == 0) return;
  void* pages = mmap(nullptr, mMappedBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) {
    KTN_LOG("mmap(%zu) of %zu frame buffers failed with errno %d (%s)", mMappedBytes, count, errno, strerror(errno));
    return;
  }
  mPages = static_cast<uint8_t*>(pages);
  // Large pages where the system has them: fewer pages to touch now and to walk later.
  madvise(mPages, mMappedBytes, MADV_HUGEPAGE);
  // Every page now, in one call where the kernel can (or one write a page where it cannot).
  if (madvise(mPages, mMappedBytes, MADV_POPULATE_WRITE) != 0) {
    for (size_t at = 0; at < mMappedBytes; at += page) mPages[at] = 0;
  }
  mContentTags.assign(count, 0);
  mFree.reserve(count);
  for (size_t i = count; i-- > 0;) mFree.push_back(mPages + i * mStride);
}

FramePool::~FramePool() {
  if (mPages) munmap(mPages, mMappedBytes);
}

uint8_t* FramePool::Take() {
  std::lock_guard<std::mutex> guard(mLock);
  if (mFree.empty()) return nullptr;
  uint8_t* buffer = mFree.back();
  mFree.pop_back();
  return buffer;
}

void FramePool::Give(uint8_t* buffer) {
  if (!buffer) return;
  std::lock_guard<std::mutex> guard(mLock);
  mFree.push_back(buffer);
}

uint64_t FramePool::ContentTag(const uint8_t* buffer) const {
  return mContentTags[Slot(buffer)];
}

void FramePool::SetContentTag(const uint8_t* buffer, uint64_t tag) {
  mContentTags[Slot(buffer)] = tag;
}

size_t FramePool::FreeCount() {
  std::lock_guard<std::mutex> guard(mLock);
  return mFree.size();
}

}  // namespace Sim
}  // namespace KTN
