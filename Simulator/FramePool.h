// Reusable frame buffers, so that a stream of multi-megabyte frames does not allocate per frame.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <mutex>
#include <vector>

namespace KTN {
namespace Sim {

// Shared by an input and its frames (a frame may outlive the stream that made it).
class FramePool {
 public:
  // Buffers are mapped pages of their own, not heap blocks: the heap would keep the pages
  // of a burst of frames that a slow host held, long after it gave them back.
  struct Unmap {
    size_t bytes;
    void operator()(uint8_t* buffer) const;
  };
  using Buffer = std::unique_ptr<uint8_t[], Unmap>;

  explicit FramePool(size_t bufferBytes) : mBufferBytes(bufferBytes) {}

  size_t BufferBytes() const { return mBufferBytes; }
  // A buffer of BufferBytes, reused when one has been given back; null when out of memory.
  Buffer Take();
  // Keeps up to a few buffers for reuse and returns the rest to the system.
  void Give(Buffer buffer);

 private:
  const size_t mBufferBytes;
  // Protects mFree.
  std::mutex mLock;
  std::vector<Buffer> mFree;
};

}  // namespace Sim
}  // namespace KTN
