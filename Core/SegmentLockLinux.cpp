// The segment lock on Linux: a name of the abstract socket namespace, bound by its holder.
#include "Core/SegmentLock.h"

#include <errno.h>
#include <stddef.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "Util/Log.h"
#include "Util/ProcessDescription.h"

namespace KTN {
namespace Core {

namespace {

using Clock = std::chrono::steady_clock;

// Where the system keeps named segments: a segment "name" is the file /dev/shm/name.
std::string SegmentPath(const char* key) {
  return std::string("/dev/shm/") + (key[0] == '/' ? key + 1 : key);
}

// The address of the abstract socket name (a path starting with NUL, which names no file).
socklen_t AddressOf(const std::string& name, sockaddr_un& address) {
  memset(&address, 0, sizeof address);
  address.sun_family = AF_UNIX;
  const size_t length = std::min(name.size(), sizeof address.sun_path - 1);
  memcpy(address.sun_path + 1, name.data(), length);
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
}

// Connections of processes asking who holds the name queue at the holder, which never
// accepts them; each waiting process asks once a wait.
constexpr int kAskers = 16;

}  // namespace

constexpr std::chrono::seconds SegmentLock::kSayHolderAfter;

SegmentLock::SegmentLock(const char* key)
    : mKey(key ? key : ""), mName(SegmentPath(key ? key : "").substr(sizeof "/dev/shm/" - 1) + ".lock") {}

SegmentLock::~SegmentLock() {
  Release();
  if (mFd >= 0) close(mFd);
}

long SegmentLock::TryBind() {
  if (mFd < 0) {
    mFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (mFd < 0) {
      long error = errno;
      KTN_LOG("socket(AF_UNIX) failed with errno %ld (%s)", error, strerror(errno));
      return error;
    }
  }
  sockaddr_un address;
  const socklen_t length = AddressOf(mName, address);
  if (bind(mFd, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
    long error = errno;
    if (error == EADDRINUSE) return error;  // held elsewhere; the socket stays unbound for the next attempt
    KTN_LOG("bind(@%s) failed with errno %ld (%s)", mName.c_str(), error, strerror(errno));
    close(mFd);
    mFd = -1;
    return error;
  }
  if (listen(mFd, kAskers) != 0) {
    long error = errno;
    KTN_LOG("listen(@%s) failed with errno %ld (%s)", mName.c_str(), error, strerror(errno));
    close(mFd);  // which frees the name again
    mFd = -1;
    return error;
  }
  return 0;
}

long SegmentLock::Acquire(Clock::time_point deadline) {
  if (mHeld) return 0;
  for (;;) {
    long rc = TryBind();
    if (rc == 0) {
      mHeld = true;
      mWaitingSince = Clock::time_point();
      mHolderSaid = false;
      return 0;
    }
    if (rc != EADDRINUSE) return rc;
    const Clock::time_point now = Clock::now();
    NoteWait(now);
    if (now >= deadline) return EAGAIN;
    // Another process is between creating its segment and removing it: a few milliseconds,
    // unless it has stalled.
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void SegmentLock::NoteWait(Clock::time_point now) {
  if (mWaitingSince == Clock::time_point() || now - mLastFailed > kSayHolderAfter) {
    mWaitingSince = now;  // a new wait
    mHolderSaid = false;
  }
  mLastFailed = now;
  if (mHolderSaid || now - mWaitingSince <= kSayHolderAfter) return;
  mHolderSaid = true;
  std::string holder = Holder();
  KTN_LOG("The name of segment %s has been held for %.1f s by %s; waiting for it", mKey.c_str(),
          std::chrono::duration<double>(now - mWaitingSince).count(),
          holder.empty() ? "a process that does not say who it is" : holder.c_str());
}

void SegmentLock::Release() {
  if (!mHeld) return;
  close(mFd);  // the name is free at once
  mFd = -1;
  mHeld = false;
}

std::string SegmentLock::Holder() const {
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return std::string();
  sockaddr_un address;
  const socklen_t length = AddressOf(mName, address);
  // The kernel answers for the holder, even one that has stopped: the connection waits in
  // its queue, and the credentials are those it listened with.
  std::string holder;
  struct ucred peer = {};
  socklen_t size = sizeof peer;
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), length) == 0 &&
      getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.pid > 0) {
    holder = Util::ProcessDescription::Of(peer.pid);
  }
  close(fd);
  return holder;
}

long SegmentLock::Owner(const char* key, uid_t& owner) {
  struct stat info;
  if (lstat(SegmentPath(key).c_str(), &info) != 0) return errno;
  owner = info.st_uid;
  return 0;
}

}  // namespace Core
}  // namespace KTN
