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
  explicit FramePool(size_t bufferBytes) : mBufferBytes(bufferBytes) {}

  size_t BufferBytes() const { return mBufferBytes; }
  // A buffer of BufferBytes, reused when one has been given back.
  std::unique_ptr<uint8_t[]> Take();
  // Keeps up to a few buffers for reuse and frees the rest.
  void Give(std::unique_ptr<uint8_t[]> buffer);

 private:
  const size_t mBufferBytes;
  // Protects mFree.
  std::mutex mLock;
  std::vector<std::unique_ptr<uint8_t[]>> mFree;
};

}  // namespace Sim
}  // namespace KTN
