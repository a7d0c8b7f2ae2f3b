// The card's frame memory: a fixed ring of buffers, made and touched once when a stream starts.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <mutex>
#include <vector>

namespace KTN {
namespace Sim {

// As a card's own memory: `count` buffers of `bufferBytes` in one mapping, every page of it
// touched when the pool is made, so that no frame ever waits for the system to find memory.
// When the host holds every buffer, Take has none to give and the card drops the frame;
// nothing grows. Shared by an input and its frames (a frame may outlive its stream).
// Safe from any thread.
class FramePool {
 public:
  FramePool(size_t bufferBytes, size_t count);
  ~FramePool();

  FramePool(const FramePool&) = delete;
  FramePool& operator=(const FramePool&) = delete;

  // False when the memory could not be had: Take then always answers null.
  bool Ok() const { return mPages != nullptr; }
  size_t BufferBytes() const { return mBufferBytes; }
  size_t Count() const { return mCount; }
  // A free buffer of BufferBytes, or null when every one is taken.
  uint8_t* Take();
  // Gives back a buffer Take returned.
  void Give(uint8_t* buffer);
  // Buffers not taken at the moment.
  size_t FreeCount();
  // What a taken buffer holds, as the card last said (0 at first): a card that knows a
  // buffer holds the picture's unchanging parts already writes only what changes. Only
  // for the holder of the buffer.
  uint64_t ContentTag(const uint8_t* buffer) const;
  void SetContentTag(const uint8_t* buffer, uint64_t tag);
  // Calls paint with every buffer not taken, whose tag it then sets to tag: the card
  // prepares its memory before the stream starts. Not while frames are being taken.
  template <typename Paint>
  void PaintFree(uint64_t tag, Paint paint) {
    std::lock_guard<std::mutex> guard(mLock);
    for (uint8_t* buffer : mFree) {
      if (mContentTags[Slot(buffer)] == tag) continue;
      paint(buffer);
      mContentTags[Slot(buffer)] = tag;
    }
  }

 private:
  // The ring's index of a buffer.
  size_t Slot(const uint8_t* buffer) const { return static_cast<size_t>(buffer - mPages) / mStride; }

  const size_t mBufferBytes;
  const size_t mCount;
  size_t mStride = 0;        // bytes from one buffer to the next, whole pages
  size_t mMappedBytes = 0;
  uint8_t* mPages = nullptr;
  // Protects mFree.
  std::mutex mLock;
  std::vector<uint8_t*> mFree;
  // One a buffer; each touched only by the buffer's holder.
  std::vector<uint64_t> mContentTags;
};

}  // namespace Sim
}  // namespace KTN
