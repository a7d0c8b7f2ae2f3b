// Tests of the simulated card's ring of frame buffers.
#include <gtest/gtest.h>

#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <set>
#include <vector>

#include "Simulator/FramePool.h"

namespace KTN {
namespace Sim {
namespace {

// Whether every page of the bytes at buffer is in memory already.
bool Resident(const uint8_t* buffer, size_t bytes) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  std::vector<unsigned char> pages((bytes + page - 1) / page);
  if (mincore(const_cast<uint8_t*>(buffer), bytes, pages.data()) != 0) return false;
  for (unsigned char state : pages) {
    if (!(state & 1)) return false;
  }
  return true;
}

// The ring is made, and every page of it touched, before the first frame; once every buffer
// is taken there is none to give, and nothing more is allocated.
TEST(FramePoolTest, RingIsTouchedOnceAndNeverGrows) {
  constexpr size_t kBytes = 3 * 1024 * 1024 + 100;  // not a whole number of pages
  FramePool pool(kBytes, 5);
  ASSERT_TRUE(pool.Ok());
  EXPECT_EQ(5u, pool.Count());
  EXPECT_EQ(kBytes, pool.BufferBytes());
  std::set<uint8_t*> taken;
  for (int i = 0; i < 5; ++i) {
    uint8_t* buffer = pool.Take();
    ASSERT_NE(nullptr, buffer);
    EXPECT_TRUE(Resident(buffer, kBytes)) << "buffer " << i << " was touched when the ring was made";
    taken.insert(buffer);
  }
  EXPECT_EQ(5u, taken.size()) << "five different buffers";
  EXPECT_EQ(nullptr, pool.Take()) << "the host holds every buffer";
  EXPECT_EQ(0u, pool.FreeCount());
  uint8_t* back = *taken.begin();
  back[kBytes - 1] = 7;  // the whole buffer is usable
  pool.Give(back);
  EXPECT_EQ(1u, pool.FreeCount());
  EXPECT_EQ(back, pool.Take()) << "a buffer given back serves the next frame";
  for (uint8_t* buffer : taken) pool.Give(buffer);
  EXPECT_EQ(5u, pool.FreeCount());
}

TEST(FramePoolTest, BuffersDoNotOverlap) {
  constexpr size_t kBytes = 10000;
  FramePool pool(kBytes, 3);
  std::vector<uint8_t*> buffers;
  for (int i = 0; i < 3; ++i) buffers.push_back(pool.Take());
  for (int i = 0; i < 3; ++i) memset(buffers[static_cast<size_t>(i)], i + 1, kBytes);
  for (int i = 0; i < 3; ++i) {
    for (size_t at : {size_t{0}, kBytes / 2, kBytes - 1}) EXPECT_EQ(i + 1, buffers[static_cast<size_t>(i)][at]);
  }
  for (uint8_t* buffer : buffers) pool.Give(buffer);
}

}  // namespace
}  // namespace Sim
}  // namespace KTN
