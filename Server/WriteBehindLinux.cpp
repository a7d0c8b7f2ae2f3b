// Write-behind on Linux: sync_file_range starts and waits for write-back, posix_fadvise drops what is written.
#include "Server/WriteBehind.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>

#include <algorithm>

#include "Util/Log.h"
#include "Util/PageCache.h"

namespace KTN {

namespace {

constexpr uint64_t kPage = 4096;
constexpr uint64_t kLargestFolio = 2 << 20;

}  // namespace

WriteBehind::WriteBehind(uint64_t windowBytes) {
  mWindow = windowBytes ? std::max<uint64_t>(windowBytes, 4 * kPage) : kDefaultWindowBytes;
  // Pushed and dropped an eighth of the window at a time: large enough for the disk to
  // write in long runs, small enough that the window is never exceeded by much.
  mChunk = std::max<uint64_t>(mWindow / 8 / kPage * kPage, kPage);
}

void WriteBehind::Start(int descriptor, const std::string& name, uint64_t from) {
  mFd = descriptor;
  mName = name;
  mDrops = descriptor >= 0 && !Util::PageCache::IsMemoryBacked(descriptor);
  // The header may be rewritten at Stop; the ranges start at the first whole page after it.
  mPushed = mDropped = mFirstDrop = (from + kPage - 1) / kPage * kPage;
}

long WriteBehind::Written(uint64_t end) {
  if (!Active()) return 0;
  // Write-back of each whole chunk starts as soon as it is written: the disk works while
  // the next frames arrive, and dirty pages never pile up.
  while (end >= mPushed + mChunk) {
    if (sync_file_range(mFd, static_cast<off64_t>(mPushed), static_cast<off64_t>(mChunk), SYNC_FILE_RANGE_WRITE) != 0) {
      return Failed("sync_file_range", errno);
    }
    mPushed += mChunk;
  }
  // A chunk half a window behind the head has long been on its way: wait for it (usually
  // done already) and drop it. The last half window stays, for the few bytes rewritten
  // behind the head (a picture lengthened over empty slots) and for a reader following the
  // take as it grows.
  while (mPushed >= mDropped + mWindow / 2 + mChunk) {
    const unsigned flags = SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
    if (sync_file_range(mFd, static_cast<off64_t>(mDropped), static_cast<off64_t>(mChunk), flags) != 0) {
      return Failed("sync_file_range", errno);
    }
    // The cache may hold a written range in folios larger than a page (up to 2 MB), and a
    // folio that reaches past the range is not dropped with it: each drop reaches back over
    // the folios its predecessor had to leave, now written back whole.
    const uint64_t back = std::min(mDropped - mFirstDrop, kLargestFolio);
    Util::PageCache::DropClean(mFd, mDropped - back, mChunk + back);
    mDropped += mChunk;
  }
  return 0;
}

long WriteBehind::Failed(const char* call, long error) {
  KTN_LOG("%s(%s) failed with errno %ld (%s)", call, mName.c_str(), error, strerror(static_cast<int>(error)));
  mFd = -1;
  return error;
}

}  // namespace KTN
