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
  SegmentLock lock(key.c_str());
  long acquired = lock.Acquire(Clock::now());
  umask(before);
  ASSERT_EQ(0, acquired);
  struct stat info;
  ASSERT_EQ(0, stat(("/dev/shm/" + key + ".lock").c_str(), &info));
  EXPECT_EQ(0666u, info.st_mode & 0777) << "whatever the creator's umask";
}

bool LockFileExists(const std::string& key) {
  struct stat info;
  return stat(("/dev/shm/" + key + ".lock").c_str(), &info) == 0;
}

TEST(SegmentLockTest, TheLastLockClosedRemovesItsFile) {
  std::string key = TestKey("removed");
  LockFileCleanup cleanup{key};
  {
    SegmentLock holder(key.c_str());
    {
      SegmentLock other(key.c_str());  // as another process's would, open but not holding
      ASSERT_EQ(0, other.Acquire(Clock::now()));
      other.Release();
      ASSERT_EQ(0, holder.Acquire(Clock::now()));
    }
    EXPECT_TRUE(LockFileExists(key)) << "removed while another holds it";
  }
  EXPECT_FALSE(LockFileExists(key)) << "left behind by its last user";
}

TEST(SegmentLockTest, AHolderWhoseFileWasRemovedTakesTheNewOne) {
  std::string key = TestKey("renewed");
  LockFileCleanup cleanup{key};
  SegmentLock stale(key.c_str());
  ASSERT_EQ(0, stale.Acquire(Clock::now()));
  stale.Release();  // its file stays open, as between two frames
  {
    SegmentLock closing(key.c_str());
    ASSERT_EQ(0, closing.Acquire(Clock::now()));
  }  // closing removes the file
  ASSERT_FALSE(LockFileExists(key));
  SegmentLock current(key.c_str());
  ASSERT_EQ(0, current.Acquire(Clock::now()));  // on a new file at the path
  EXPECT_EQ(EAGAIN, stale.Acquire(Clock::now() + std::chrono::milliseconds(20)))
      << "two holders at once: one of them on a removed file";
  current.Release();
  EXPECT_EQ(0, stale.Acquire(Clock::now()));
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
