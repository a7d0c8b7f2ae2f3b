// Tests of Lockable and the Lock and Unlock guards, including their failure reports.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "Core/FakeErrorCheckingLockable.h"
#include "Core/Lock.h"
#include "Core/Unlock.h"
#include "Util/CapturedStderr.h"

namespace KTN {
namespace Core {
namespace {

using Util::CapturedStderr;

// ThreadSanitizer reports an unlock of a mutex the thread does not hold, which these tests
// provoke on purpose to make the guards' unlock fail.
#if defined(__SANITIZE_THREAD__)
#define SKIP_DELIBERATE_MISUSE_UNDER_TSAN() GTEST_SKIP() << "deliberate unlock of an unheld mutex"
#else
#define SKIP_DELIBERATE_MISUSE_UNDER_TSAN() static_cast<void>(0)
#endif

TEST(LockableTest, InitThenLockAndUnlockSucceed) {
  Lockable lockable;
  ASSERT_EQ(0, lockable.Init());
  EXPECT_EQ(0, lockable.Lock());
  EXPECT_EQ(0, lockable.Unlock());
}

TEST(LockableTest, ExcludesOtherThreads) {
  Lockable lockable;
  ASSERT_EQ(0, lockable.Init());
  long counter = 0;
  auto work = [&] {
    for (int i = 0; i < 100000; ++i) {
      Lock lock(&lockable);
      ++counter;
    }
  };
  std::thread a(work), b(work);
  a.join();
  b.join();
  EXPECT_EQ(200000, counter);
}

TEST(LockGuardTest, UnlocksAtEndOfBlock) {
  FakeErrorCheckingLockable lockable;
  ASSERT_EQ(0, lockable.Init());
  long result = -1;
  {
    Lock lock(&lockable, &result);
    EXPECT_EQ(0, result);
    CapturedStderr captured;
    EXPECT_EQ(35, lockable.Lock()) << "the guard holds the mutex";
    EXPECT_EQ("*** Lock[#]: pthread_mutex_lock returned 35\n", captured.Text());
  }
  EXPECT_EQ(0, result);
  EXPECT_EQ(0, lockable.Lock()) << "released at the end of the block";
  EXPECT_EQ(0, lockable.Unlock());
}

TEST(LockGuardTest, FailedUnlockKeepsEarlierError) {
  SKIP_DELIBERATE_MISUSE_UNDER_TSAN();
  FakeErrorCheckingLockable lockable;
  ASSERT_EQ(0, lockable.Init());
  long result = 0;
  CapturedStderr captured;
  {
    Lock lock(&lockable, &result);
    ASSERT_EQ(0, result);
    result = 5;  // an earlier failure inside the block
    // Released behind the guard's back, so the guard's own unlock fails with EPERM.
    ASSERT_EQ(0, lockable.Unlock());
  }
  EXPECT_EQ(5, result) << "first error wins";
  EXPECT_EQ("*** Unlock[#]: pthread_mutex_unlock returned 1\n*** ~Lock[#]: Unlock returned 1\n", captured.Text());
}

TEST(LockGuardTest, FailedUnlockFillsCleanResult) {
  SKIP_DELIBERATE_MISUSE_UNDER_TSAN();
  FakeErrorCheckingLockable lockable;
  ASSERT_EQ(0, lockable.Init());
  long result = 0;
  CapturedStderr captured;
  {
    Lock lock(&lockable, &result);
    ASSERT_EQ(0, lockable.Unlock());
  }
  EXPECT_EQ(1, result);
  captured.Text();
}

TEST(LockGuardTest, FailedLockIsReportedAndNotUnlocked) {
  FakeErrorCheckingLockable lockable;
  ASSERT_EQ(0, lockable.Init());
  ASSERT_EQ(0, lockable.Lock());
  long result = 0;
  CapturedStderr captured;
  {
    Lock lock(&lockable, &result);
    EXPECT_EQ(35, result);
  }
  EXPECT_EQ("*** Lock[#]: pthread_mutex_lock returned 35\n*** Lock[#]: Lock returned 35\n", captured.Text());
  // The guard did not unlock: the mutex is still this thread's.
  EXPECT_EQ(0, lockable.Unlock());
}

TEST(LockGuardTest, WithoutResultVariableOnlyReports) {
  SKIP_DELIBERATE_MISUSE_UNDER_TSAN();
  FakeErrorCheckingLockable lockable;
  ASSERT_EQ(0, lockable.Init());
  CapturedStderr captured;
  {
    Lock lock(&lockable);
    ASSERT_EQ(0, lockable.Unlock());
  }
  EXPECT_EQ("*** Unlock[#]: pthread_mutex_unlock returned 1\n*** ~Lock[#]: Unlock returned 1\n", captured.Text());
}

TEST(UnlockGuardTest, ReleasesForTheBlockAndRelocks) {
  FakeErrorCheckingLockable lockable;
  ASSERT_EQ(0, lockable.Init());
  ASSERT_EQ(0, lockable.Lock());
  long result = -1;
  {
    Unlock unlock(&lockable, &result);
    EXPECT_EQ(0, result);
    std::atomic<bool> taken{false};
    std::thread other([&] {
      Lock lock(&lockable);
      taken = true;
    });
    other.join();
    EXPECT_TRUE(taken) << "another thread could take the lock inside the block";
  }
  EXPECT_EQ(0, result);
  EXPECT_EQ(0, lockable.Unlock()) << "held again after the block";
}

TEST(UnlockGuardTest, FailedRelockKeepsEarlierError) {
  FakeErrorCheckingLockable lockable;
  ASSERT_EQ(0, lockable.Init());
  ASSERT_EQ(0, lockable.Lock());
  long result = 0;
  CapturedStderr captured;
  {
    Unlock unlock(&lockable, &result);
    ASSERT_EQ(0, result);
    result = 7;
    ASSERT_EQ(0, lockable.Lock());  // taken back early, so the guard's lock deadlocks
  }
  EXPECT_EQ(7, result);
  EXPECT_EQ("*** Lock[#]: pthread_mutex_lock returned 35\n*** ~Unlock[#]: Lock returned 35\n", captured.Text());
  EXPECT_EQ(0, lockable.Unlock());
}

TEST(UnlockGuardTest, FailedUnlockIsReportedAndNotRelocked) {
  SKIP_DELIBERATE_MISUSE_UNDER_TSAN();
  FakeErrorCheckingLockable lockable;
  ASSERT_EQ(0, lockable.Init());
  CapturedStderr captured;
  {
    Unlock unlock(&lockable);  // not held: EPERM
  }
  EXPECT_EQ("*** Unlock[#]: pthread_mutex_unlock returned 1\n*** Unlock[#]: Unlock returned 1\n", captured.Text());
  EXPECT_EQ(0, lockable.Lock()) << "the guard did not lock on the way out";
  EXPECT_EQ(0, lockable.Unlock());
}

}  // namespace
}  // namespace Core
}  // namespace KTN
