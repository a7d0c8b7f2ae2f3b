// Tests of Event, the one-shot latch.
#include <gtest/gtest.h>

#include <errno.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "Core/Event.h"

namespace KTN {
namespace Core {
namespace {

// A wait of a fraction of a second that starts when the clock's microseconds and the wait's
// add up to exactly one second gets a deadline of 1000000000 nanoseconds, which is kept as
// computed and which pthread_cond_timedwait refuses with 22. Only that one microsecond of
// each second does it, so the wait is made once more, a few microseconds later; a second 22
// is a real failure.
long TimedWaitAvoidingTheWholeSecond(Event& event, long micros, bool& timedOut) {
  long rc = event.TimedWait(micros, timedOut);
  if (rc != EINVAL) return rc;
  std::this_thread::sleep_for(std::chrono::microseconds(5));
  return event.TimedWait(micros, timedOut);
}

TEST(EventTest, SignalOnSignalledEventReportsTrueAndWaitReturnsAtOnce) {
  Event event;
  ASSERT_EQ(0, event.Init());
  bool wasSignalled = true;
  EXPECT_EQ(0, event.Signal(&wasSignalled));
  EXPECT_FALSE(wasSignalled);
  EXPECT_EQ(0, event.Signal(&wasSignalled));
  EXPECT_TRUE(wasSignalled);
  EXPECT_TRUE(event.mSignalled);
  EXPECT_EQ(0, event.Wait());  // would block for ever if the latch had not held
}

TEST(EventTest, TimedWaitOfZeroOnUnsignalledEventTimesOut) {
  Event event;
  ASSERT_EQ(0, event.Init());
  bool timedOut = false;
  EXPECT_EQ(0, event.TimedWait(0, timedOut));
  EXPECT_TRUE(timedOut);
}

TEST(EventTest, TimedWaitWaitsAboutTheTimeGiven) {
  Event event;
  ASSERT_EQ(0, event.Init());
  bool timedOut = false;
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(0, TimedWaitAvoidingTheWholeSecond(event, 100000, timedOut));
  auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_TRUE(timedOut);
  EXPECT_GE(waited, std::chrono::milliseconds(90));
}

TEST(EventTest, TimedWaitOnSignalledEventDoesNotTimeOut) {
  Event event;
  ASSERT_EQ(0, event.Init());
  ASSERT_EQ(0, event.Signal(nullptr));
  bool timedOut = true;
  EXPECT_EQ(0, event.TimedWait(0, timedOut));
  EXPECT_FALSE(timedOut);
}

TEST(EventTest, SignalFromAnotherThreadWakesWaiter) {
  Event event;
  ASSERT_EQ(0, event.Init());
  std::thread signaller([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    event.Signal(nullptr);
  });
  bool timedOut = true;
  // The wait has no loop of its own: a spurious wake-up returns 0 too, so check the state.
  while (!event.mSignalled && timedOut) ASSERT_EQ(0, event.TimedWait(10000000, timedOut));
  signaller.join();
  EXPECT_FALSE(timedOut);
}

TEST(EventTest, BroadcastReleasesEveryWaiter) {
  Event event;
  ASSERT_EQ(0, event.Init());
  std::atomic<int> released{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 4; ++i) {
    waiters.emplace_back([&] {
      bool timedOut = true;
      if (event.TimedWait(10000000, timedOut) == 0 && !timedOut) ++released;
    });
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  bool wasSignalled = true;
  EXPECT_EQ(0, event.Broadcast(&wasSignalled));
  EXPECT_FALSE(wasSignalled);
  for (auto& waiter : waiters) waiter.join();
  EXPECT_EQ(4, released);
}

TEST(EventTest, OwnerMayClearTheLatchToReuseIt) {
  Event event;
  ASSERT_EQ(0, event.Init());
  ASSERT_EQ(0, event.Signal(nullptr));
  event.mSignalled = false;
  bool timedOut = false;
  EXPECT_EQ(0, event.TimedWait(0, timedOut));
  EXPECT_TRUE(timedOut);
}

}  // namespace
}  // namespace Core
}  // namespace KTN
