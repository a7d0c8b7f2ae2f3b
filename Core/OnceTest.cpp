// Tests of Once: the routine runs exactly once, whichever threads ask.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "Core/Once.h"

namespace KTN {
namespace Core {
namespace {

std::atomic<int> sRuns{0};

void CountRun() {
  ++sRuns;
}

TEST(OnceTest, RunsOnceAcrossThreads) {
  Once once(CountRun);
  std::vector<std::thread> threads;
  std::atomic<int> failures{0};
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      for (int j = 0; j < 100; ++j) failures += once.Call() != 0;
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(0, failures);
  EXPECT_EQ(1, sRuns);
  EXPECT_EQ(0, once.Call());
  EXPECT_EQ(1, sRuns);
}

}  // namespace
}  // namespace Core
}  // namespace KTN
