// A take's signal measured as it is written, into its levels and events sidecars.
#include "Server/SignalMonitor.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <numeric>

#include "Movie/MovieLock.h"
#include "Movie/MovieSidecars.h"
#include "Util/FileIo.h"
#include "Util/Log.h"

namespace KTN {

class SignalMonitor::PictureBytes final : public FragmentWriter::BytesSeen {
 public:
  explicit PictureBytes(PictureMeter& meter) : mMeter(meter) {}
  void Seen(uint64_t offset, const uint8_t* data, size_t size) override { mMeter.Update(offset, data, size); }

 private:
  PictureMeter& mMeter;
};

class SignalMonitor::SoundBytes final : public FragmentWriter::BytesSeen {
 public:
  explicit SoundBytes(SoundMeter& meter) : mMeter(meter) {}
  void Seen(uint64_t, const uint8_t* data, size_t size) override { mMeter.Update(data, size); }

 private:
  SoundMeter& mMeter;
};

SignalMonitor::SignalMonitor() = default;

SignalMonitor::~SignalMonitor() {
  Closing();
}

void SignalMonitor::Closing() {
  for (int* fd : {&mLevelsFd, &mEventsFd}) {
    if (*fd < 0) continue;
    // The figures reach the disk with the movie, at the end of the take.
    if (!mFailed && fdatasync(*fd) != 0) {
      KTN_LOG("fdatasync(%s) failed with errno %d (%s)", mPath.c_str(), errno, strerror(errno));
    }
    close(*fd);
    *fd = -1;
  }
}

long SignalMonitor::Open(const std::string& moviePath, const Layout& layout) {
  Closing();
  mPath = moviePath;
  mFailed = false;
  mLines.clear();
  mLastSlot = -1;
  for (auto [fd, path] : {std::make_pair(&mLevelsFd, MovieSidecars::Levels(moviePath)),
                          std::make_pair(&mEventsFd, MovieSidecars::Events(moviePath))}) {
    long error = 0;
    *fd = MovieLock::OpenRegular(path, O_WRONLY | O_CREAT | O_APPEND, error);
    if (*fd < 0) {
      Closing();
      return error;
    }
    // The take's one-writer lock, held on the movie, covers its sidecars too.
    if (ftruncate(*fd, 0) != 0) {
      long rc = errno;
      KTN_LOG("ftruncate(%s) failed with errno %ld (%s)", path.c_str(), rc, strerror(errno));
      Closing();
      return rc;
    }
  }
  const int64_t duration = layout.frameDuration > 0 && layout.timescale > 0 ? layout.frameDuration : 1;
  const int64_t timescale = layout.frameDuration > 0 && layout.timescale > 0 ? layout.timescale : 25;
  mPictures.reset(layout.pictures
                      ? new PictureMeter(layout.pixelFormat, layout.width, layout.rows, layout.rowBytes)
                      : nullptr);
  mSound.reset(layout.channels > 0 ? new SoundMeter(layout.channels, layout.bitsPerSample, layout.sampleRate,
                                                    duration, timescale)
                                   : nullptr);
  mFinder.reset(new SignalEventFinder(duration, timescale, layout.channels));
  mPictureBytes.reset(mPictures ? new PictureBytes(*mPictures) : nullptr);
  mSoundBytes.reset(mSound ? new SoundBytes(*mSound) : nullptr);
  const int64_t common = std::gcd(duration, timescale);
  Append(mLevelsFd, SlotLevels::Header(timescale / common, duration / common, layout.channels), "levels");
  return mFailed ? EIO : 0;
}

void SignalMonitor::Append(int fd, const std::string& text, const char* which) {
  if (mFailed || fd < 0 || text.empty()) return;
  if (long rc = Util::FileIo::WriteAll(fd, text.data(), text.size())) {
    KTN_LOG("write(%s.%s) failed with errno %ld (%s): the take goes on without its %s from here", mPath.c_str(),
            which, rc, strerror(static_cast<int>(rc)), which);
    mFailed = true;
  }
}

void SignalMonitor::Flush() {
  Append(mLevelsFd, mLines, "levels");
  mLines.clear();
  std::string events;
  for (const SignalEvent& event : mFinder->Take()) events += event.Line();
  Append(mEventsFd, events, "events");
}

FragmentWriter::BytesSeen* SignalMonitor::BeginPicture(int64_t slot) {
  if (!IsOpen() || !mPictures) return nullptr;
  mPictureSlot = slot;
  return mPictureBytes.get();
}

void SignalMonitor::EndPicture(bool written) {
  if (!IsOpen() || !mPictures) return;
  // A picture left out is not ended: the next is compared with the one before it.
  if (!written || mPictureSlot <= mLastSlot) return;
  const PictureReading reading = mPictures->End(mPictureSlot);
  mLastSlot = mPictureSlot;
  if (mPictures->Measures()) mLines += SlotLevels::Line(reading.levels);
  mFinder->Picture(reading);
  Flush();
}

void SignalMonitor::MeasurePicture(int64_t slot, const uint8_t* rows, size_t size) {
  if (!BeginPicture(slot)) return;
  mPictures->Update(0, rows, size);
  EndPicture(true);
}

FragmentWriter::BytesSeen* SignalMonitor::BeginSound(int64_t firstSample) {
  if (!IsOpen() || !mSound) return nullptr;
  mSound->Begin(firstSample);
  return mSoundBytes.get();
}

void SignalMonitor::EndSound(bool written) {
  if (!IsOpen() || !mSound) return;
  if (!written) {
    mSound->Abort();
    return;
  }
  Sounds(mSound->End());
  Flush();
}

void SignalMonitor::Sounds(const std::vector<SoundReading>& readings) {
  for (const SoundReading& reading : readings) {
    mLines += SlotLevels::Line(reading.levels);
    mFinder->Sound(reading);
  }
}

void SignalMonitor::Finish(int64_t slots) {
  if (!IsOpen()) return;
  if (mSound) Sounds(mSound->Flush());
  mFinder->Finish(slots >= 0 ? slots : mLastSlot + 1);
  Flush();
  Closing();
}

}  // namespace KTN
