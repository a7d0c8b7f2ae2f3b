// Tests of the segment lock: one holder at a time across processes, freed by a holder's death, named after a long wait.
#include <gtest/gtest.h>

#include <dirent.h>
#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "Core/FakeStalledHolder.h"
#include "Core/SegmentLock.h"
#include "Core/SharedMemory.h"
#include "Util/CapturedStderr.h"

namespace KTN {
namespace Core {
namespace {

using Clock = std::chrono::steady_clock;

std::string TestKey(const char* tag) {
  return "ktn." + std::to_string(getpid()) + "." + tag;
}

// The entries of /dev/shm whose names hold key.
std::vector<std::string> BesideTheSegments(const std::string& key) {
  std::vector<std::string> found;
  DIR* folder = opendir("/dev/shm");
  if (!folder) return found;
  while (dirent* entry = readdir(folder)) {
    if (std::string(entry->d_name).find(key) != std::string::npos) found.push_back(entry->d_name);
  }
  closedir(folder);
  return found;
}

// Waits for the lock of a held name for longer than kSayHolderAfter, in attempts of 50 ms
// as service calls make them; what it wrote to standard error.
std::string WaitBeyondSayingTheHolder(SegmentLock& lock, Clock::time_point since) {
  Util::CapturedStderr captured;
  while (Clock::now() - since < SegmentLock::kSayHolderAfter + std::chrono::milliseconds(500)) {
    if (lock.Acquire(Clock::now() + std::chrono::milliseconds(50)) != EAGAIN) {
      ADD_FAILURE() << "the name was free";
      break;
    }
  }
  return captured.Text();
}

TEST(SegmentLockTest, OneHolderAtATime) {
  std::string key = TestKey("lock");
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

// The lock is a name, not a file: nothing of it ever lies beside the segments.
TEST(SegmentLockTest, TheLockLeavesNothingBesideTheSegments) {
  std::string key = TestKey("nothing");
  {
    SegmentLock lock(key.c_str());
    ASSERT_EQ(0, lock.Acquire(Clock::now()));
    EXPECT_EQ(std::vector<std::string>(), BesideTheSegments(key)) << "while held";
    lock.Release();
    EXPECT_EQ(std::vector<std::string>(), BesideTheSegments(key)) << "once let go";
  }
  EXPECT_EQ(std::vector<std::string>(), BesideTheSegments(key));
}

// A process killed outright (no destructor runs) while it holds the name frees it at once and
// leaves nothing behind, as does one killed after it used the lock and let it go.
TEST(SegmentLockTest, AProcessKilledOutrightFreesTheNameAndLeavesNothing) {
  std::string key = TestKey("killed");
  SegmentLock lock(key.c_str());
  {
    FakeStalledHolder holder(key);
    ASSERT_GT(holder.Pid(), 0);
    EXPECT_EQ(EAGAIN, lock.Acquire(Clock::now() + std::chrono::milliseconds(20)));
    holder.Kill();
    EXPECT_EQ(0, lock.Acquire(Clock::now())) << "free as soon as its holder is gone";
    lock.Release();
    EXPECT_EQ(std::vector<std::string>(), BesideTheSegments(key));
  }
  FakeStalledHolder user(key, FakeStalledHolder::Use::kUseAndLetGo);
  ASSERT_GT(user.Pid(), 0);
  EXPECT_EQ(0, lock.Acquire(Clock::now())) << "let go by a process that is still alive";
  lock.Release();
  user.Kill();
  EXPECT_EQ(std::vector<std::string>(), BesideTheSegments(key));
}

TEST(SegmentLockTest, TheHolderIsNamedWhileItHoldsTheName) {
  std::string key = TestKey("holder");
  SegmentLock lock(key.c_str());
  EXPECT_EQ("", lock.Holder()) << "nobody holds it";
  FakeStalledHolder holder(key);
  ASSERT_GT(holder.Pid(), 0);
  std::string who = lock.Holder();
  EXPECT_EQ("process " + std::to_string(holder.Pid()) + " (stalled-holder) of user ", who.substr(0, who.rfind(' ') + 1))
      << who;
  holder.Kill();
  EXPECT_EQ("", lock.Holder()) << "nobody holds it once its holder has died";
}

// Waiting for a name that another user's stalled process holds: a short wait says nothing; one
// longer than two seconds, made of many attempts, names the holder in one line, once. A
// later wait names its holder again.
TEST(SegmentLockTest, AWaitOfMoreThanTwoSecondsNamesTheHolderOnce) {
  if (geteuid() != 0) GTEST_SKIP() << "a holder of another user needs root";
  const uid_t nobody = 65534;
  std::string key = TestKey("named");
  SegmentLock lock(key.c_str());
  {
    FakeStalledHolder holder(key, FakeStalledHolder::Use::kHold, nobody);
    ASSERT_GT(holder.Pid(), 0);
    const Clock::time_point start = Clock::now();
    {
      Util::CapturedStderr captured;
      EXPECT_EQ(EAGAIN, lock.Acquire(Clock::now() + std::chrono::milliseconds(50)));
      EXPECT_EQ("", captured.Text()) << "a short wait is not told";
    }
    const std::string text = WaitBeyondSayingTheHolder(lock, start);
    EXPECT_EQ(1, std::count(text.begin(), text.end(), '\n')) << text;
    EXPECT_EQ(0u, text.find("*** NoteWait[#]: The name of segment " + key + " has been held for ")) << text;
    EXPECT_NE(std::string::npos,
              text.find(" s by process " + std::to_string(holder.Pid()) + " (stalled-holder) of user nobody; waiting for it\n"))
        << text;
  }
  ASSERT_EQ(0, lock.Acquire(Clock::now())) << "the wait ends";
  lock.Release();
  FakeStalledHolder next(key);
  ASSERT_GT(next.Pid(), 0);
  const std::string later = WaitBeyondSayingTheHolder(lock, Clock::now());
  EXPECT_EQ(1, std::count(later.begin(), later.end(), '\n')) << later;
  EXPECT_NE(std::string::npos, later.find(" s by process " + std::to_string(next.Pid()) + " (stalled-holder)")) << later;
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
