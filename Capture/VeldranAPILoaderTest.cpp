// Tests of the device API loader. Each test starts and ends with the loader untried, so the
// tests pass in any order, in one process or in several.
#include <gtest/gtest.h>

#include "Capture/APICapture.h"
#include "Capture/VeldranAPILoader.h"
#include "Util/CapturedStderr.h"

namespace KTN {
namespace {

class VeldranAPILoaderTest : public testing::Test {
 protected:
  void SetUp() override { ResetVeldranAPIForTesting(); }
  void TearDown() override { ResetVeldranAPIForTesting(); }
};

TEST_F(VeldranAPILoaderTest, MissingBundleGivesNullEveryTimeAndIsLookedForOnce) {
  SetVeldranAPIBundlePathForTesting("/nonexistent/VeldranAPI.bundle");
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(nullptr, CreateVeldranIteratorInstance());
    EXPECT_EQ(nullptr, CreateOpenGLScreenPreviewHelper());
    EXPECT_EQ(nullptr, CreateCocoaScreenPreview(nullptr));
    EXPECT_EQ(nullptr, CreateVideoConversionInstance());
  }
  EXPECT_EQ(1, VeldranAPILoadAttempts());
}

TEST_F(VeldranAPILoaderTest, BundleWithOnlyTheIteratorFactory) {
  VeldranEntryPoints entryPoints = LoadVeldranAPI(ITERATOR_ONLY_BUNDLE);
  ASSERT_NE(nullptr, entryPoints.createIterator);
  EXPECT_EQ(nullptr, entryPoints.createOpenGLPreview);
  EXPECT_EQ(nullptr, entryPoints.createCocoaPreview);
  EXPECT_EQ(nullptr, entryPoints.createVideoConversion);
  IVeldranIterator* iterator = entryPoints.createIterator();
  ASSERT_NE(nullptr, iterator);
  IVeldran* device = reinterpret_cast<IVeldran*>(1);
  EXPECT_EQ(kVeldranFalse, iterator->Next(&device));
  EXPECT_EQ(nullptr, device);
  EXPECT_EQ(0, iterator->Release());
}

TEST_F(VeldranAPILoaderTest, FactoriesGoThroughTheLoadedBundle) {
  SetVeldranAPIBundlePathForTesting(ITERATOR_ONLY_BUNDLE);
  IVeldranIterator* iterator = CreateVeldranIteratorInstance();
  ASSERT_NE(nullptr, iterator);
  iterator->Release();
  EXPECT_EQ(nullptr, CreateOpenGLScreenPreviewHelper());
  EXPECT_EQ(1, VeldranAPILoadAttempts());
}

TEST_F(VeldranAPILoaderTest, WithoutALibraryTheCaptureInputReportsIt) {
  SetVeldranAPIBundlePathForTesting("/nonexistent/VeldranAPI.bundle");
  APICapture* capture = new APICapture;
  Util::CapturedStderr captured;
  EXPECT_EQ(2, capture->Init());
  EXPECT_EQ("*** FindVeldranInput[#]: CreateVeldranIteratorInstance failed\n*** Init[#]: GetVeldranInput returned 2 (0x2)\n",
            captured.Text());
  capture->Release();
}

// Unless a test says otherwise, the first factory call looks in the bundle that the card's
// driver installs (whether or not one is installed on this machine).
TEST_F(VeldranAPILoaderTest, FixedPathIsTheDriversBundle) {
  EXPECT_EQ(nullptr, VeldranAPIBundleLookedIn()) << "not looked for yet";
  EXPECT_EQ(nullptr, CreateCocoaScreenPreview(nullptr));  // there is no Cocoa preview on this platform
  ASSERT_NE(nullptr, VeldranAPIBundleLookedIn());
  EXPECT_STREQ("/Library/Application Support/Kestrin Design/Kestrin Veldran/VeldranAPI.bundle",
               VeldranAPIBundleLookedIn());
  EXPECT_EQ(1, VeldranAPILoadAttempts());
}

}  // namespace
}  // namespace KTN
