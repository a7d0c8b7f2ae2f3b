// What the host program shows while it records.
#include "Host/ProgressDisplay.h"

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Host/DurationText.h"
#include "Host/InPointStatus.h"
#include "Host/LiveSignal.h"
#include "Host/RecordingRate.h"
#include "Movie/MovieFollower.h"

namespace KTN {

namespace {

constexpr auto kRedrawInterval = std::chrono::milliseconds(250);
constexpr auto kPlainInterval = std::chrono::seconds(1);
constexpr auto kReadInterval = std::chrono::seconds(1);
// The sidecars are small and read from where the last look ended: an event shows within a
// quarter of a second of being written.
constexpr auto kSignalInterval = std::chrono::milliseconds(250);
// The rate over less than this would swing with each frame's arrival.
constexpr double kShortestRateSpan = 0.5;

// The terminal's width in columns, or 0 when it does not say.
int Columns(FILE* out) {
  struct winsize size = {};
  if (ioctl(fileno(out), TIOCGWINSZ, &size) != 0) return 0;
  return size.ws_col;
}

}  // namespace

ProgressDisplay::ProgressDisplay(FILE* out, const std::string& moviePath, const CaptureSettings& settings)
    : mOut(out),
      mTerminal(isatty(fileno(out)) != 0),
      mMoviePath(moviePath),
      mSettings(settings),
      mFollower(new MovieFollower(moviePath)),
      mSignal(new LiveSignal(moviePath, settings.frameDuration, settings.timeScale)),
      mCreated(Clock::now()) {
  // A terminal shows the first report at once; plain lines come once a second from now.
  mLastDrawn = mTerminal ? Clock::time_point() : mCreated;
}

ProgressDisplay::~ProgressDisplay() = default;

void ProgressDisplay::Update(const std::string& status, int64_t frames, int64_t expected) {
  const Clock::time_point now = Clock::now();
  if (InPointStatus(status).Waiting()) {
    // Says what it waits for and where the signal is; no figures of a take that has not begun.
    mWaited = true;
    mText = status;
  } else {
    if (!mRecording) {
      // Recording since the display was made (right after the start), or since the wait
      // for the in-point ended.
      mRecording = true;
      mRecordingSince = mWaited ? now : mCreated;
      mRateFrom = mRateNext = Sample{now, 0};
      mLastRead = Clock::time_point();
    }
    if (now - mLastRead >= kReadInterval) {
      mLastRead = now;
      ReadMovieAndDisk();
      mRateFrom = mRateNext;
      mRateNext = Sample{now, frames};
    }
    if (now - mLastSignalRead >= kSignalInterval) {
      mLastSignalRead = now;
      ReadSignal();
    }
    mText = Figures(now, frames, expected);
  }
  mShown = false;
  if (now - mLastDrawn >= (mTerminal ? std::chrono::duration_cast<Clock::duration>(kRedrawInterval)
                                     : std::chrono::duration_cast<Clock::duration>(kPlainInterval))) {
    Draw(now);
  }
}

std::string ProgressDisplay::Figures(Clock::time_point now, int64_t frames, int64_t expected) {
  const int64_t shown = frames;
  const double span = std::chrono::duration<double>(now - mRateFrom.time).count();
  const double rate = span >= kShortestRateSpan ? static_cast<double>(shown - mRateFrom.frames) / span : 0.0;
  char count[64];
  if (expected > 0) {
    snprintf(count, sizeof count, "%lld/%lld", static_cast<long long>(shown), static_cast<long long>(expected));
  } else {
    snprintf(count, sizeof count, "%lld", static_cast<long long>(shown));
  }
  // The peak goes before the disk's time, which a narrow terminal cuts first.
  char text[256];
  snprintf(text, sizeof text, "%s | %s frames | %.1f fps | %lld dropped | %s%sdisk: %s",
           ElapsedText(std::chrono::duration<double>(now - mRecordingSince).count()).c_str(), count, rate,
           static_cast<long long>(mDropped), mPeak.c_str(), mPeak.empty() ? "" : " | ",
           mSecondsLeft < 0 ? "time left unknown" : (DiskTimeText(mSecondsLeft) + " left").c_str());
  return text;
}

void ProgressDisplay::ReadMovieAndDisk() {
  // Before the server has made the movie there is nothing to read (and no failure to tell).
  struct stat info;
  if (stat(mMoviePath.c_str(), &info) == 0 && mFollower->Update() == 0) {
    const MovieSummary& movie = mFollower->Summary();
    mDropped = static_cast<int64_t>(movie.EmptySlots());
  }
  mSecondsLeft = RecordingSecondsLeft(mMoviePath, mSettings);
}

void ProgressDisplay::ReadSignal() {
  if (!mSignal) return;
  if (mSignal->Update() != 0) {
    mSignal.reset();  // it said why in one line; the take goes on without its events
    mPeak.clear();
    return;
  }
  mPeak = mSignal->PeakText();
  for (const std::string& line : mSignal->NewLines()) Note(line);
}

void ProgressDisplay::SetStartTimecode(const std::string& text) {
  if (mSignal) mSignal->SetStartTimecode(text);
}

void ProgressDisplay::Draw(Clock::time_point now) {
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

void ProgressDisplay::Note(const std::string& line) {
  if (mTerminal && mLineOpen) fputs("\r\033[K", mOut);
  fprintf(mOut, "%s\n", line.c_str());
  fflush(mOut);
  mLineOpen = false;
  if (mTerminal && !mFinished && !mText.empty()) Draw(Clock::now());
}

void ProgressDisplay::Finish() {
  if (mFinished) return;
  mFinished = true;
  if (!mTerminal) return;
  if (!mShown && !mText.empty()) Draw(Clock::now());
  if (mLineOpen) fputc('\n', mOut);
  fflush(mOut);
  mLineOpen = false;
}

void ProgressDisplay::FinalEvents() {
  Finish();
  ReadSignal();
}

}  // namespace KTN
