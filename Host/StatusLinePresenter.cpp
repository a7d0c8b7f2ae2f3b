// The status line: a recording's progress for the person at the terminal.
#include "Host/StatusLinePresenter.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include "Host/DurationText.h"

namespace KTN {

namespace {

constexpr auto kRedrawInterval = std::chrono::milliseconds(250);
constexpr auto kPlainInterval = std::chrono::seconds(1);

// The terminal's width in columns, or 0 when it does not say.
int Columns(FILE* out) {
  struct winsize size = {};
  if (ioctl(fileno(out), TIOCGWINSZ, &size) != 0) return 0;
  return size.ws_col;
}

}  // namespace

StatusLinePresenter::StatusLinePresenter(FILE* out, Clock::time_point created)
    : mOut(out), mTerminal(isatty(fileno(out)) != 0) {
  // A terminal shows the first report at once; plain lines come once a second from now.
  mLastDrawn = mTerminal ? Clock::time_point() : created;
}

std::string StatusLinePresenter::Text(const ProgressFigures::Figures& figures) {
  char count[64];
  if (figures.expected > 0) {
    snprintf(count, sizeof count, "%lld/%lld", static_cast<long long>(figures.frames), static_cast<long long>(figures.expected));
  } else {
    snprintf(count, sizeof count, "%lld", static_cast<long long>(figures.frames));
  }
  const std::string peak = LiveSignal::PeakText(figures.peaks);
  // The peak goes before the disk's time, which a narrow terminal cuts first.
  char text[256];
  snprintf(text, sizeof text, "%s | %s frames | %.1f fps | %lld dropped | %s%sdisk: %s",
           ElapsedText(figures.elapsedSeconds).c_str(), count, figures.fps, static_cast<long long>(figures.dropped),
           peak.c_str(), peak.empty() ? "" : " | ",
           figures.diskSecondsLeft < 0 ? "time left unknown" : (DiskTimeText(figures.diskSecondsLeft) + " left").c_str());
  return text;
}

void StatusLinePresenter::Show(const ProgressFigures::Figures& figures, Clock::time_point now) {
  mText = figures.waiting ? figures.status : Text(figures);
  mShown = false;
  if (now - mLastDrawn >= (mTerminal ? std::chrono::duration_cast<Clock::duration>(kRedrawInterval)
                                     : std::chrono::duration_cast<Clock::duration>(kPlainInterval))) {
    Draw(now);
  }
}

void StatusLinePresenter::Draw(Clock::time_point now) {
  mLastDrawn = now;
  mShown = true;
  if (!mTerminal) {
    fprintf(mOut, "%s\n", mText.c_str());
    fflush(mOut);
    return;
  }
  // A line longer than the terminal would wrap, and erasing would then clear only its end.
  std::string line = mText;
  int columns = Columns(mOut);
  if (columns > 1 && line.size() > static_cast<size_t>(columns - 1)) line.resize(static_cast<size_t>(columns - 1));
  fprintf(mOut, "\r\033[K%s", line.c_str());
  fflush(mOut);
  mLineOpen = true;
}

void StatusLinePresenter::Event(const LiveSignal::Found& found, Clock::time_point now) {
  Note(LiveSignal::EventLine(found.timecode, found.event), now);
}

void StatusLinePresenter::Note(const std::string& line, Clock::time_point now) {
  if (mTerminal && mLineOpen) fputs("\r\033[K", mOut);
  fprintf(mOut, "%s\n", line.c_str());
  fflush(mOut);
  mLineOpen = false;
  if (mTerminal && !mFinished && !mText.empty()) Draw(now);
}

void StatusLinePresenter::Finish(Clock::time_point now) {
  if (mFinished) return;
  mFinished = true;
  if (!mTerminal) return;
  if (!mShown && !mText.empty()) Draw(now);
  if (mLineOpen) fputc('\n', mOut);
  fflush(mOut);
  mLineOpen = false;
}

}  // namespace KTN
