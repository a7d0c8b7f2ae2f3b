// Failure lines on standard error: "*** <function>[<line>]: <message>", one write each.
#pragma once

namespace KTN {
namespace Util {

// Writes "*** <function>[<line>]: " followed by the formatted message to standard error
// in a single write(2), so lines from several threads never interleave. Adds nothing
// after the message: KTN_LOG supplies the line feed. Safe from any thread; allocates
// only when the line is longer than 2 KiB.
void LogFailure(const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// The same single write without the "***" prefix. Used only by the per-thread buffer
// mechanism, which reports on its own because the Printer depends on it.
void LogRaw(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace Util
}  // namespace KTN

// Reports a failure where it is detected, naming the reporting function and source line.
// The format is checked against its arguments at compile time.
#define KTN_LOG(format, ...) \
  ::KTN::Util::LogFailure(__func__, __LINE__, format "\n", ##__VA_ARGS__)

// The same, in the name of the operation the caller is in (a helper that reports for it).
#define KTN_LOG_AS(function, format, ...) \
  ::KTN::Util::LogFailure(function, __LINE__, format "\n", ##__VA_ARGS__)
