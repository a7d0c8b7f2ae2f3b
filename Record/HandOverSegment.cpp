// One hand-over's shared-memory segment, owned from its creation until the server has answered.
#include "Record/HandOverSegment.h"

#include <errno.h>
#include <pwd.h>
#include <unistd.h>

#include "Util/Log.h"

namespace KTN {

HandOverSegment::HandOverSegment(HandOverSegment&& other) noexcept
    : mSegment(std::move(other.mSegment)), mLock(other.mLock) {
  other.mLock = nullptr;
}

HandOverSegment& HandOverSegment::operator=(HandOverSegment&& other) noexcept {
  if (this != &other) {
    Reset();
    mSegment = std::move(other.mSegment);
    mLock = other.mLock;
    other.mLock = nullptr;
  }
  return *this;
}

long HandOverSegment::TakeName(Core::SegmentLock& lock, std::chrono::steady_clock::time_point nameBy) {
  Reset();
  if (long rc = lock.Acquire(nameBy)) return rc;
  mLock = &lock;
  return 0;
}

long HandOverSegment::Create(const char* key, unsigned long size) {
  mSegment.reset(new Core::SharedMemory(key));
  Core::SharedMemory& segment = *mSegment;
  long rc = segment.Create(size);
  uid_t owner = 0;
  if (rc == EEXIST && Core::SegmentLock::Owner(segment.Key(), owner) == 0 && owner != geteuid()) {
    // Left by another user's recording (an active one would hold the lock): not ours to remove.
    struct passwd entry, *found = nullptr;
    char names[1024];
    getpwuid_r(owner, &entry, names, sizeof names, &found);
    KTN_LOG("Segment %s was left behind by user %s (%u) and only that user can remove it", segment.Key(),
            found ? found->pw_name : "unknown", static_cast<unsigned>(owner));
    return EACCES;
  }
  if (rc == EEXIST) {
    if (long unlinked = segment.Unlink()) KTN_LOG("Unlink returned %ld", unlinked);
    rc = segment.Create(size);
  }
  if (rc) KTN_LOG("Create(%lu) returned %ld", size, rc);
  return rc;
}

long HandOverSegment::Fill(const struct iovec* parts, int count) {
  if (long rc = mSegment->Fill(parts, count)) {
    KTN_LOG("Fill returned %ld", rc);
    return rc;
  }
  return 0;
}

}  // namespace KTN
