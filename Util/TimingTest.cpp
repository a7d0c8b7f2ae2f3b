// Tests of the microsecond clock and deadlines.
#include <gtest/gtest.h>

#include <time.h>

#include "Util/Timing.h"

namespace KTN {
namespace Util {
namespace {

struct DeadlineCase {
  long nowSeconds;
  long nowMicros;
  long long micros;
  long deadlineSeconds;
  long deadlineNanos;
};

// Nanoseconds are carried only when they exceed a second: exactly 1000000000 stays.
const DeadlineCase kDeadlineCases[] = {
    {1000, 500000, 500000, 1000, 1000000000},
    {1000, 500000, 500001, 1001, 1000},
    {1000, 0, 0, 1000, 0},
    {1000, 999999, 2000001, 1002, 1000000000},
    {1000, 999999, 2000002, 1003, 1000},
    {1000, 250000, 1250000, 1001, 500000000},
};

TEST(TimingTest, DeadlinesFromAClockReading) {
  for (const DeadlineCase& c : kDeadlineCases) {
    timeval now{c.nowSeconds, c.nowMicros};
    timespec deadline{};
    Timing::TimespecForMicrosAfter(now, c.micros, &deadline);
    EXPECT_EQ(c.deadlineSeconds, deadline.tv_sec) << c.micros;
    EXPECT_EQ(c.deadlineNanos, deadline.tv_nsec) << c.micros;
  }
}

TEST(TimingTest, MicrosAreTheWallClock) {
  unsigned long long micros = 0, relative = 0;
  ASSERT_EQ(0, Timing::GetMicros(micros));
  ASSERT_EQ(0, Timing::GetRelativeMicros(relative));
  long long now = static_cast<long long>(time(nullptr)) * 1000000LL;
  EXPECT_NEAR(static_cast<double>(now), static_cast<double>(micros), 2e6);
  EXPECT_GE(relative, micros);
}

TEST(TimingTest, DeadlineIntoTheFutureIsNowPlusMicros) {
  timespec deadline{};
  ASSERT_EQ(0, Timing::TimespecForMicrosIntoFuture(3000000, &deadline));
  EXPECT_NEAR(static_cast<double>(time(nullptr) + 3), static_cast<double>(deadline.tv_sec), 1.0);
  EXPECT_LE(deadline.tv_nsec, 1000000000L);
}

}  // namespace
}  // namespace Util
}  // namespace KTN
