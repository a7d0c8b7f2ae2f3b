// Reusable frame buffers.
#include "Simulator/FramePool.h"

#include <sys/mman.h>

namespace KTN {
namespace Sim {

void FramePool::Unmap::operator()(uint8_t* buffer) const {
  munmap(buffer, bytes);
}

FramePool::Buffer FramePool::Take() {
  {
    std::lock_guard<std::mutex> guard(mLock);
    if (!mFree.empty()) {
      Buffer buffer = std::move(mFree.back());
      mFree.pop_back();
      return buffer;
    }
  }
  void* pages = mmap(nullptr, mBufferBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return Buffer(pages == MAP_FAILED ? nullptr : static_cast<uint8_t*>(pages), Unmap{mBufferBytes});
}

void FramePool::Give(Buffer buffer) {
  std::lock_guard<std::mutex> guard(mLock);
  if (mFree.size() < 8) mFree.push_back(std::move(buffer));
}

}  // namespace Sim
}  // namespace KTN
