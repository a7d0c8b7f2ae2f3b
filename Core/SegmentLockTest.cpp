// Tests of the segment lock: held by one holder at a time, open to every user, and the owner of a segment.
#include <gtest/gtest.h>

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "Core/SegmentLock.h"
#include "Core/SharedMemory.h"

namespace KTN {
namespace Core {
namespace {

using Clock = std::chrono::steady_clock;

std::string TestKey(const char* tag) {
  return "ktn." + std::to_string(getpid()) + "." + tag;
}

// Removes the lock file a test made.
struct LockFileCleanup {
  std::string key;
  ~LockFileCleanup() { unlink(("/dev/shm/" + key + ".lock").c_str()); }
};

TEST(SegmentLockTest, OneHolderAtATime) {
  std::string key = TestKey("lock");
  LockFileCleanup cleanup{key};
  SegmentLock first(key.c_str());
  SegmentLock second(key.c_str());  // as another process's would
  ASSERT_EQ(0, first.Acquire(Clock::now()));
  EXPECT_TRUE(first.Held());
  EXPECT_EQ(EAGAIN, second.Acquire(Clock::now() + std::chrono::milliseconds(20)));
  EXPECT_FALSE(second.Held());
  first.Release();
  EXPECT_EQ(0, second.Acquire(Clock::now()));
  EXPECT_TRUE(second.Held());
  EXPECT_EQ(0, second.Acquire(Clock::now())) << "taking a held lock again is a no-op";
}

TEST(SegmentLockTest, TheLockFileLiesBesideTheSegmentOpenToEveryUser) {
  std::string key = TestKey("mode");
  LockFileCleanup cleanup{key};
  mode_t before = umask(077);
  {
    SegmentLock lock(key.c_str());
    ASSERT_EQ(0, lock.Acquire(Clock::now()));
  }
  umask(before);
  struct stat info;
  ASSERT_EQ(0, stat(("/dev/shm/" + key + ".lock").c_str(), &info));
  EXPECT_EQ(0666u, info.st_mode & 0777) << "whatever the creator's umask";
}

TEST(SegmentLockTest, TheOwnerOfASegment) {
  std::string key = TestKey("owner");
  uid_t owner = 12345;
  EXPECT_EQ(ENOENT, SegmentLock::Owner(key.c_str(), owner));
  SharedMemory segment(key.c_str());
  ASSERT_EQ(0, segment.Create(16));
  ASSERT_EQ(0, SegmentLock::Owner(key.c_str(), owner));
  EXPECT_EQ(geteuid(), owner);
}

}  // namespace
}  // namespace Core
}  // namespace KTN
