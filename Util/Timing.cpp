// Microsecond wall-clock readings and deadlines.
#include "Util/Timing.h"

#include <errno.h>

#include "Util/Log.h"

namespace KTN {
namespace Util {

long Timing::GetMicros(unsigned long long& micros) {
  timeval now;
  if (gettimeofday(&now, nullptr) != 0) {
    long rc = errno;
    KTN_LOG("gettimeofday returned %ld", rc);
    return rc;
  }
  micros = static_cast<unsigned long long>(now.tv_sec) * 1000000ull + static_cast<unsigned long long>(now.tv_usec);
  return 0;
}

long Timing::GetRelativeMicros(unsigned long long& micros) {
  if (long rc = GetMicros(micros)) {
    KTN_LOG("GetMicros returned %ld", rc);
    return rc;
  }
  return 0;
}

long Timing::TimespecForMicrosIntoFuture(long long micros, timespec* deadline) {
  timeval now;
  if (gettimeofday(&now, nullptr) != 0) {
    long rc = errno;
    KTN_LOG("gettimeofday returned %ld", rc);
    return rc;
  }
  TimespecForMicrosAfter(now, micros, deadline);
  return 0;
}

void Timing::TimespecForMicrosAfter(const timeval& now, long long micros, timespec* deadline) {
  deadline->tv_sec = static_cast<time_t>(micros / 1000000 + now.tv_sec);
  deadline->tv_nsec = static_cast<long>((micros % 1000000 + now.tv_usec) * 1000);
  if (deadline->tv_nsec > 1000000000L) {
    deadline->tv_sec += 1;
    deadline->tv_nsec -= 1000000000L;
  }
}

}  // namespace Util
}  // namespace KTN
