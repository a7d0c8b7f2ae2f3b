// Reusable frame buffers.
#include "Simulator/FramePool.h"

namespace KTN {
namespace Sim {

std::unique_ptr<uint8_t[]> FramePool::Take() {
  {
    std::lock_guard<std::mutex> guard(mLock);
    if (!mFree.empty()) {
      std::unique_ptr<uint8_t[]> buffer = std::move(mFree.back());
      mFree.pop_back();
      return buffer;
    }
  }
  return std::unique_ptr<uint8_t[]>(new (std::nothrow) uint8_t[mBufferBytes]);
}

void FramePool::Give(std::unique_ptr<uint8_t[]> buffer) {
  std::lock_guard<std::mutex> guard(mLock);
  if (mFree.size() < 8) mFree.push_back(std::move(buffer));
}

}  // namespace Sim
}  // namespace KTN
