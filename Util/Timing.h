// Microsecond wall-clock readings and absolute deadlines for timed waits.
#pragma once

#include <sys/time.h>
#include <time.h>

namespace KTN {
namespace Util {

// No state; safe from any thread. Times are microseconds since the epoch.
class Timing {
 public:
  // The wall clock (gettimeofday). micros is left untouched on failure.
  static long GetMicros(unsigned long long& micros);
  // The same wall-clock reading: it is not a monotonic clock.
  static long GetRelativeMicros(unsigned long long& micros);
  // The absolute wall-clock deadline micros from now, for pthread_cond_timedwait.
  // deadline is left untouched on failure.
  static long TimespecForMicrosIntoFuture(long long micros, timespec* deadline);
  // The deadline micros after the reading now. Nanoseconds are carried into seconds only
  // when they exceed 1000000000; a sum of exactly 1000000000 is left as it is.
  static void TimespecForMicrosAfter(const timeval& now, long long micros, timespec* deadline);
};

}  // namespace Util
}  // namespace KTN
