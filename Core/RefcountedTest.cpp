// Tests of Refcounted: counts, self-deletion and the negative-count report.
#include <gtest/gtest.h>

#include <thread>

#include "Core/Refcounted.h"
#include "Util/CapturedStderr.h"

namespace KTN {
namespace Core {
namespace {

// Records its destruction; PinAtZero puts the count where an over-release finds it.
class FakeRefcounted : public Refcounted {
 public:
  explicit FakeRefcounted(bool* destroyed) : mDestroyed(destroyed) {}
  void PinAtZero() { mCount = 0; }
  void Destroy() { delete this; }

 protected:
  ~FakeRefcounted() override { *mDestroyed = true; }

 private:
  bool* mDestroyed;
};

TEST(RefcountedTest, RetainAndReleaseReturnTheNewCount) {
  bool destroyed = false;
  FakeRefcounted* object = new FakeRefcounted(&destroyed);
  EXPECT_EQ(2, object->Retain());
  EXPECT_EQ(3, object->Retain());
  EXPECT_EQ(2, object->Release());
  EXPECT_EQ(1, object->Release());
  EXPECT_FALSE(destroyed);
  EXPECT_EQ(0, object->Release());
  EXPECT_TRUE(destroyed) << "the release from 1 to 0 destroys the object";
}

TEST(RefcountedTest, NegativeCountIsReportedAndDestroysNothing) {
  bool destroyed = false;
  FakeRefcounted* object = new FakeRefcounted(&destroyed);
  object->PinAtZero();
  Util::CapturedStderr captured;
  EXPECT_EQ(-1, object->Release());
  EXPECT_EQ("*** Release[#]: Negative reference count: -1\n", captured.Text());
  EXPECT_FALSE(destroyed);
  object->Destroy();
}

TEST(RefcountedTest, CountsAtomicallyFromTwoThreads) {
  bool destroyed = false;
  FakeRefcounted* object = new FakeRefcounted(&destroyed);
  auto churn = [object] {
    for (int i = 0; i < 200000; ++i) {
      object->Retain();
      object->Release();
    }
  };
  std::thread device(churn), host(churn);
  device.join();
  host.join();
  EXPECT_FALSE(destroyed);
  EXPECT_EQ(0, object->Release());
  EXPECT_TRUE(destroyed);
}

}  // namespace
}  // namespace Core
}  // namespace KTN
