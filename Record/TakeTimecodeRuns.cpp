// A take's timecode runs and the timecode-break lines of its events sidecar.
#include "Record/TakeTimecodeRuns.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "Movie/MovieLock.h"
#include "Movie/MovieSidecars.h"
#include "Signal/SignalEvent.h"
#include "Util/FileIo.h"
#include "Util/Log.h"

namespace KTN {

void TakeTimecodeRuns::Begin(const std::string& moviePath, uint32_t frameDuration, uint32_t timescale) {
  End();
  mMovie = moviePath;
  mFrameDuration = frameDuration;
  mTimescale = timescale;
  mCounting = TimecodeTrack::CountableRate(frameDuration, timescale);
  mSlots = SlotTimecodes();
  mLastSlot = -1;
  mEventsFailed = false;
}

bool TakeTimecodeRuns::Picture(int64_t slot, const std::string& text) {
  if (!mCounting || text.empty() || slot < 0 || slot <= mLastSlot) return false;
  if (!mSlots.Known()) {
    // The first picture's timecode starts the take's first run, at its own slot, and decides
    // the counting (drop frame when its text says so).
    if (mSlots.Start(mFrameDuration, mTimescale, text, slot)) mLastSlot = slot;
    return false;
  }
  const int64_t frame = mSlots.FrameOf(text);
  if (frame < 0) return false;  // not a timecode of this take's counting: it neither starts nor breaks a run
  // A break is any other timecode than the runs so far give this slot: the previous picture's
  // plus the slots between, within a day.
  mLastSlot = slot;
  if (frame == mSlots.Frame(slot)) return false;
  SignalEvent event;
  event.kind = SignalEvent::Kind::kTimecodeBreak;
  event.slot = slot;
  event.frames = 1;
  event.before = mSlots.Text(slot - 1);
  mSlots.AddRun(slot, text);
  event.after = mSlots.Text(slot);
  Append(event.Line());
  return true;
}

std::vector<TimecodeRun> TakeTimecodeRuns::Breaks() const {
  std::vector<TimecodeRun> runs = mSlots.Runs();
  if (!runs.empty()) runs.erase(runs.begin());
  return runs;
}

void TakeTimecodeRuns::End() {
  if (mEvents >= 0) close(mEvents);
  mEvents = -1;
}

void TakeTimecodeRuns::Append(const std::string& line) {
  if (mEventsFailed) return;
  const std::string path = MovieSidecars::Events(mMovie);
  if (mEvents < 0) {
    long error = 0;
    mEvents = MovieLock::OpenRegular(path, O_WRONLY | O_APPEND | O_CREAT | O_NOCTTY, error);
    if (mEvents < 0) {
      KTN_LOG("The timecode breaks of %s are not kept in %s: it cannot be opened", mMovie.c_str(), path.c_str());
      mEventsFailed = true;
      return;
    }
  }
  // One write a line: with O_APPEND the server's lines and ours never interleave.
  if (long rc = Util::FileIo::WriteAll(mEvents, line.data(), line.size())) {
    KTN_LOG("write(%s) failed with errno %ld (%s): the take's later timecode breaks are not kept there", path.c_str(),
            rc, strerror(static_cast<int>(rc)));
    mEventsFailed = true;
    End();
  }
}

}  // namespace KTN
