// Writes a take's frame-hash sidecar beside it as the take is written.
#include "Server/FrameHashSidecar.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "Movie/MovieLock.h"
#include "Util/FileIo.h"
#include "Util/Log.h"

namespace KTN {

FrameHashSidecar::~FrameHashSidecar() {
  Close();
}

long FrameHashSidecar::Open(const std::string& path, const std::string& header) {
  Close();
  mPath = path;
  mSize = mCommitted = 0;
  mPending = mLastPicture = -1;
  mFirstError = 0;
  long error = 0;
  mFd = MovieLock::OpenRegular(path, O_WRONLY | O_CREAT, error);
  if (mFd < 0) return mFirstError = error;
  // The take's one-writer lock, held on the movie, covers its sidecar too.
  if (ftruncate(mFd, 0) != 0) return Failed("ftruncate", errno);
  if (long rc = Util::FileIo::WriteAll(mFd, header.data(), header.size(), 0)) return Failed("pwrite", rc);
  mSize = mCommitted = header.size();
  return 0;
}

long FrameHashSidecar::Append(const std::vector<FrameHashLine>& lines, bool picture) {
  if (mFd < 0) return EBADF;
  if (mFirstError) return mFirstError;
  // One sample's lines in one write: a few hundred bytes at most.
  char text[8 * FrameHashLine::kMaxText];
  size_t used = 0;
  mPending = -1;
  for (const FrameHashLine& line : lines) {
    if (used + FrameHashLine::kMaxText > sizeof text) {
      if (long rc = Util::FileIo::WriteAll(mFd, text, used, static_cast<int64_t>(mSize))) return Failed("pwrite", rc);
      mSize += used;
      used = 0;
    }
    if (picture && mPending < 0) {
      mPending = static_cast<int64_t>(mSize + used);
      mPendingLine = line;
    }
    used += line.Format(text + used);
  }
  if (long rc = Util::FileIo::WriteAll(mFd, text, used, static_cast<int64_t>(mSize))) return Failed("pwrite", rc);
  mSize += used;
  return 0;
}

void FrameHashSidecar::Commit() {
  mCommitted = mSize;
  if (mPending >= 0) {
    mLastPicture = mPending;
    mPictureLine = mPendingLine;
  }
  mPending = -1;
}

long FrameHashSidecar::CutBack() {
  mPending = -1;
  if (mFd < 0 || mSize == mCommitted) return mFirstError;
  if (ftruncate(mFd, static_cast<off_t>(mCommitted)) != 0) return Failed("ftruncate", errno);
  mSize = mCommitted;
  return 0;
}

long FrameHashSidecar::LengthenLastPicture(int64_t duration) {
  if (mFd < 0 || mLastPicture < 0) return EINVAL;
  if (mFirstError) return mFirstError;
  char before[FrameHashLine::kMaxText], after[FrameHashLine::kMaxText];
  const size_t oldLength = mPictureLine.Format(before);
  mPictureLine.duration = duration;
  const size_t newLength = mPictureLine.Format(after);
  const uint64_t at = static_cast<uint64_t>(mLastPicture);
  if (newLength == oldLength) {
    // The duration column is eight wide: a lengthened picture keeps its line's length.
    if (long rc = Util::FileIo::WriteAll(mFd, after, newLength, mLastPicture)) return Failed("pwrite", rc);
    return 0;
  }
  // A duration wider than its column (over a hundred million units of empty slots): the
  // lines after the picture's move along with it.
  std::string rest(mSize - at - oldLength, '\0');
  if (!rest.empty()) {
    if (long rc = Util::FileIo::ReadAll(mFd, &rest[0], rest.size(), static_cast<int64_t>(at + oldLength))) {
      return Failed("pread", rc);
    }
  }
  rest.insert(0, after, newLength);
  if (long rc = Util::FileIo::WriteAll(mFd, rest.data(), rest.size(), mLastPicture)) return Failed("pwrite", rc);
  mSize = at + rest.size();
  mCommitted = mCommitted + newLength - oldLength;
  return 0;
}

long FrameHashSidecar::Close() {
  if (mFd < 0) return mFirstError;
  if (mSize != mCommitted && ftruncate(mFd, static_cast<off_t>(mCommitted)) != 0) Failed("ftruncate", errno);
  if (fdatasync(mFd) != 0) Failed("fdatasync", errno);
  if (close(mFd) != 0) Failed("close", errno);
  mFd = -1;
  return mFirstError;
}

long FrameHashSidecar::Failed(const char* call, long error) {
  KTN_LOG("%s(%s) failed with errno %ld (%s)", call, mPath.c_str(), error, strerror(static_cast<int>(error)));
  if (!mFirstError) mFirstError = error;
  return error;
}

}  // namespace KTN
