// Failure lines on standard error, each written in one call where standard error takes it whole.
#include "Util/Log.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "Util/FileIo.h"

namespace KTN {
namespace Util {

namespace {

// Writes all of [text, text + length) to standard error. A single write(2) on a pipe or
// terminal is atomic up to PIPE_BUF; going on after a short write only matters for longer
// lines or a signal. A standard error that takes nothing loses the line: there is nowhere
// else to say so.
void WriteAll(const char* text, size_t length) {
  int savedErrno = errno;  // a failure report must not disturb the caller's errno
  (void)FileIo::WriteAll(STDERR_FILENO, text, length);
  errno = savedErrno;
}

// Formats prefix and message into one buffer and writes it out in one go.
void WriteFormatted(const char* prefixFormat, const char* function, int line,
                    const char* format, va_list args) {
  char stackBuffer[2048];
  int prefixLength = 0;
  if (prefixFormat) {
    prefixLength = snprintf(stackBuffer, sizeof stackBuffer, prefixFormat, function, line);
    if (prefixLength < 0) return;
    if (static_cast<size_t>(prefixLength) >= sizeof stackBuffer) prefixLength = sizeof stackBuffer - 1;
  }
  va_list copy;
  va_copy(copy, args);
  int messageLength = vsnprintf(stackBuffer + prefixLength, sizeof stackBuffer - prefixLength,
                                format, copy);
  va_end(copy);
  if (messageLength < 0) return;
  size_t total = static_cast<size_t>(prefixLength) + static_cast<size_t>(messageLength);
  if (total < sizeof stackBuffer) {
    WriteAll(stackBuffer, total);
    return;
  }
  // Longer than the stack buffer: format again into a block of the exact size. If even
  // that fails, the truncated line still goes out rather than nothing.
  char* heapBuffer = static_cast<char*>(malloc(total + 1));
  if (!heapBuffer) {
    WriteAll(stackBuffer, sizeof stackBuffer - 1);
    return;
  }
  memcpy(heapBuffer, stackBuffer, static_cast<size_t>(prefixLength));
  vsnprintf(heapBuffer + prefixLength, total + 1 - prefixLength, format, args);
  WriteAll(heapBuffer, total);
  free(heapBuffer);
}

}  // namespace

void LogFailure(const char* function, int line, const char* format, ...) {
  va_list args;
  va_start(args, format);
  WriteFormatted("*** %s[%d]: ", function, line, format, args);
  va_end(args);
}

void LogRaw(const char* format, ...) {
  va_list args;
  va_start(args, format);
  WriteFormatted(nullptr, nullptr, 0, format, args);
  va_end(args);
}

}  // namespace Util
}  // namespace KTN
