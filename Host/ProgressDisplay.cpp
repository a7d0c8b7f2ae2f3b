// What the host program shows while it records.
#include "Host/ProgressDisplay.h"

#include <unistd.h>

namespace KTN {

ProgressDisplay::ProgressDisplay(FILE* out)
    : mOut(out), mTerminal(isatty(fileno(out)) != 0), mStart(std::chrono::steady_clock::now()), mLastPlain(mStart) {}

void ProgressDisplay::Update(const std::string& status, int64_t frames, int64_t expected, double frameRate) {
  auto now = std::chrono::steady_clock::now();
  double elapsed = std::chrono::duration<double>(now - mStart).count();
  double rate = elapsed > 0 ? frames / elapsed : 0;
  if (!mTerminal) {
    if (now - mLastPlain < std::chrono::seconds(1)) return;
    mLastPlain = now;
    fprintf(mOut, "%s: %lld frames, %.1f s, %.1f fps\n", status.c_str(), static_cast<long long>(frames), elapsed, rate);
    fflush(mOut);
    return;
  }
  char bar[24] = "";
  if (expected > 0) {
    int filled = static_cast<int>(20 * (frames > expected ? expected : frames) / expected);
    for (int i = 0; i < 20; ++i) bar[i] = i < filled ? '#' : '-';
    bar[20] = '\0';
  }
  fprintf(mOut, "\r\033[K%s | %lld frames | %.1f fps (%.2fx real time) | %02d:%04.1f",
          status.c_str(), static_cast<long long>(frames), rate, frameRate > 0 ? rate / frameRate : 0.0,
          static_cast<int>(elapsed) / 60, elapsed - 60 * (static_cast<int>(elapsed) / 60));
  if (expected > 0) fprintf(mOut, " [%s] %3d%%", bar, static_cast<int>(100 * (frames > expected ? expected : frames) / expected));
  fflush(mOut);
  mDrawn = true;
}

void ProgressDisplay::Finish() {
  if (mTerminal && mDrawn) fputc('\n', mOut);
  mDrawn = false;
}

}  // namespace KTN
