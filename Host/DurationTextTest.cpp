// Tests of the lengths of time the host program and the capture window show.
#include <gtest/gtest.h>

#include "Host/DurationText.h"

namespace KTN {
namespace {

struct DurationCase {
  double seconds;
  const char* disk;
  const char* elapsed;
};

const DurationCase kDurations[] = {
    {-5, "0 s", "0:00:00"},
    {0, "0 s", "0:00:00"},
    {42.9, "42 s", "0:00:42"},
    {59, "59 s", "0:00:59"},
    {60, "1 min 00 s", "0:01:00"},
    {245, "4 min 05 s", "0:04:05"},
    {3599, "59 min 59 s", "0:59:59"},
    {3600, "1 h 00 min", "1:00:00"},
    {7980, "2 h 13 min", "2:13:00"},
    {360000, "100 h 00 min", "100:00:00"},
};

TEST(DurationTextTest, DiskTimeAndElapsedTime) {
  for (const DurationCase& c : kDurations) {
    EXPECT_EQ(c.disk, DiskTimeText(c.seconds)) << c.seconds;
    EXPECT_EQ(c.elapsed, ElapsedText(c.seconds)) << c.seconds;
  }
}

}  // namespace
}  // namespace KTN
