// What a recording's progress is made of, gathered once for every way of showing it.
#include "Host/ProgressFigures.h"

#include <sys/stat.h>

#include "Host/InPointStatus.h"
#include "Host/RecordingRate.h"
#include "Movie/MovieFollower.h"

namespace KTN {

namespace {

constexpr auto kReadInterval = std::chrono::seconds(1);
// The sidecars are small and read from where the last look ended: an event shows within a
// quarter of a second of being written.
constexpr auto kSignalInterval = std::chrono::milliseconds(250);
// The rate over less than this would swing with each frame's arrival.
constexpr double kShortestRateSpan = 0.5;

}  // namespace

ProgressFigures::ProgressFigures(const std::string& moviePath, const CaptureSettings& settings, Clock::time_point now)
    : mMoviePath(moviePath),
      mSettings(settings),
      mFollower(new MovieFollower(moviePath)),
      mSignal(new LiveSignal(moviePath, settings.frameDuration, settings.timeScale)),
      mCreated(now) {}

ProgressFigures::~ProgressFigures() = default;

void ProgressFigures::Update(const std::string& status, int64_t frames, int64_t expected, Clock::time_point now) {
  mFigures.status = status;
  mFigures.frames = frames;
  mFigures.expected = expected;
  if (InPointStatus(status).Waiting()) {
    // What it waits for and where the signal is; no figures of a take that has not begun.
    mWaited = true;
    mFigures.waiting = true;
    return;
  }
  mFigures.waiting = false;
  if (!mRecording) {
    // Recording since the figures were made (right after the start), or since the wait for
    // the in-point ended.
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
  mFigures.elapsedSeconds = std::chrono::duration<double>(now - mRecordingSince).count();
  const double span = std::chrono::duration<double>(now - mRateFrom.time).count();
  mFigures.fps = span >= kShortestRateSpan ? static_cast<double>(frames - mRateFrom.frames) / span : 0.0;
}

void ProgressFigures::ReadMovieAndDisk() {
  // Before the server has made the movie there is nothing to read (and no failure to tell).
  struct stat info;
  if (stat(mMoviePath.c_str(), &info) == 0 && mFollower->Update() == 0) {
    const MovieSummary& movie = mFollower->Summary();
    mFigures.slots = static_cast<int64_t>(movie.pictureSlots);
    mFigures.pictures = static_cast<int64_t>(movie.pictures);
    mFigures.dropped = static_cast<int64_t>(movie.EmptySlots());
  }
  mFigures.diskSecondsLeft = RecordingSecondsLeft(mMoviePath, mSettings);
}

void ProgressFigures::ReadSignal() {
  if (!mSignal) return;
  if (mSignal->Update() != 0) {
    mSignal.reset();  // it said why in one line; the take goes on without its events
    mFigures.peaks.clear();
    return;
  }
  mFigures.peaks = mSignal->ChannelPeaks(1.0);
  for (LiveSignal::Found& found : mSignal->NewEvents()) mNewEvents.push_back(std::move(found));
}

void ProgressFigures::SetStartTimecode(const std::string& text) {
  if (mSignal) mSignal->SetStartTimecode(text);
}

std::vector<LiveSignal::Found> ProgressFigures::NewEvents() {
  std::vector<LiveSignal::Found> found;
  found.swap(mNewEvents);
  return found;
}

}  // namespace KTN
