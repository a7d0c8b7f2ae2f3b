// Reports a failed FFmpeg call in the caller's name and maps its code to errno.
#include "Finish/AvFailure.h"

#include <errno.h>

extern "C" {
#include <libavutil/error.h>
}

#include "Util/Log.h"

namespace KTN {

long AvFailure(const char* caller, int line, const char* call, int averror) {
  char text[AV_ERROR_MAX_STRING_SIZE];
  av_strerror(averror, text, sizeof text);
  Util::LogFailure(caller, line, "%s failed with %d (%s)\n", call, averror, text);
  return averror < 0 && averror > -4096 ? -averror : EIO;
}

}  // namespace KTN
