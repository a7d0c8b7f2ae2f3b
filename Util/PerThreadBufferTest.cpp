// Tests of the per-thread scratch blocks.
#include <gtest/gtest.h>

#include <thread>

#include "Util/CapturedStderr.h"
#include "Util/PerThreadBuffer.h"

namespace KTN {
namespace Util {
namespace {

TEST(PerThreadBufferTest, RequestAboveTheLimitIsRefused) {
  CapturedStderr captured;
  EXPECT_EQ(nullptr, GetPerThreadBuffer(2049));
  EXPECT_EQ("Per-thread buffer of 2049 requested but limit is 2048\n", captured.Text());
}

TEST(PerThreadBufferTest, WholeBlockIsGrantedFromItsStart) {
  std::thread fresh([] {
    char* start = static_cast<char*>(GetPerThreadBuffer(1));
    ASSERT_NE(nullptr, start);
    EXPECT_EQ(start + 1, GetPerThreadBuffer(16));
    EXPECT_EQ(start, GetPerThreadBuffer(2048));
    EXPECT_EQ(start, GetPerThreadBuffer(2048));
  });
  fresh.join();
}

TEST(PerThreadBufferTest, SecondLargeRequestWraps) {
  void* first = GetPerThreadBuffer(1500);
  ASSERT_NE(nullptr, first);
  EXPECT_EQ(first, GetPerThreadBuffer(1500));
}

TEST(PerThreadBufferTest, ThreadsHaveBlocksOfTheirOwn) {
  char* mine = static_cast<char*>(GetPerThreadBuffer(2048));
  char* theirs = nullptr;
  std::thread other([&] { theirs = static_cast<char*>(GetPerThreadBuffer(2048)); });
  other.join();
  ASSERT_NE(nullptr, mine);
  ASSERT_NE(nullptr, theirs);
  EXPECT_TRUE(theirs + 2048 <= mine || mine + 2048 <= theirs) << "the blocks overlap";
}

}  // namespace
}  // namespace Util
}  // namespace KTN
