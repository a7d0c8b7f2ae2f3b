// Tests of the simulated card's frame buffers.
#include <gtest/gtest.h>

#include <errno.h>
#include <sys/mman.h>

#include <set>
#include <vector>

#include "Simulator/FramePool.h"

namespace KTN {
namespace Sim {
namespace {

// Whether the pages at buffer are still mapped in this process.
bool Mapped(const uint8_t* buffer, size_t bytes) {
  return msync(const_cast<uint8_t*>(buffer), bytes, MS_ASYNC) == 0 || errno != ENOMEM;
}

// A burst of frames held at once goes back to the system when given back, apart from the
// eight the pool keeps for the next frames.
TEST(FramePoolTest, KeepsEightBuffersAndUnmapsTheRest) {
  constexpr size_t kBytes = 4 * 1024 * 1024;
  FramePool pool(kBytes);
  std::vector<FramePool::Buffer> burst;
  std::vector<const uint8_t*> addresses;
  for (int i = 0; i < 12; ++i) {
    burst.push_back(pool.Take());
    ASSERT_TRUE(burst.back());
    burst.back()[kBytes - 1] = 1;  // every page of it usable
    addresses.push_back(burst.back().get());
  }
  for (FramePool::Buffer& buffer : burst) pool.Give(std::move(buffer));
  int stillMapped = 0;
  for (const uint8_t* address : addresses) stillMapped += Mapped(address, kBytes);
  EXPECT_EQ(8, stillMapped);

  std::set<const uint8_t*> kept;
  for (int i = 0; i < 8; ++i) {
    burst[static_cast<size_t>(i)] = pool.Take();
    kept.insert(burst[static_cast<size_t>(i)].get());
  }
  int reused = 0;
  for (const uint8_t* address : addresses) reused += kept.count(address) ? 1 : 0;
  EXPECT_EQ(8, reused) << "the kept buffers serve the next frames";
}

}  // namespace
}  // namespace Sim
}  // namespace KTN
