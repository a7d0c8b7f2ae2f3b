// Tests of the standards and formats tables.
#include <gtest/gtest.h>

#include "Settings/CaptureSettings.h"
#include "Settings/CaptureTables.h"
#include "Util/FourCC.h"

namespace KTN {
namespace {

using Util::FourCC;

TEST(CaptureTablesTest, SeparatorsAreExactlyRows6_10And22) {
  for (size_t i = 0; i < kSupportedStandardCount; ++i) {
    bool separator = i == 6 || i == 10 || i == 22;
    EXPECT_EQ(separator, gSupportedStandards[i].name == nullptr) << i;
    EXPECT_EQ(!separator, IsNamedStandardIndex(static_cast<int>(i))) << i;
    if (separator) {
      EXPECT_EQ(0u, gSupportedStandards[i].displayMode | gSupportedStandards[i].width |
                        gSupportedStandards[i].allowedFormats);
    }
  }
  EXPECT_FALSE(IsNamedStandardIndex(-1));
  EXPECT_FALSE(IsNamedStandardIndex(26));
}

TEST(CaptureTablesTest, FormatIndices) {
  EXPECT_TRUE(IsPixelFormatIndex(0));
  EXPECT_TRUE(IsPixelFormatIndex(13));
  EXPECT_FALSE(IsPixelFormatIndex(14));
  EXPECT_FALSE(IsPixelFormatIndex(-1));
}

TEST(CaptureTablesTest, NoStandardAllowsTheProResRows) {
  for (const SupportedStandard& standard : gSupportedStandards) {
    EXPECT_EQ(0u, standard.allowedFormats & ((1u << 12) | (1u << 13))) << (standard.name ? standard.name : "-");
  }
  EXPECT_STREQ("ProRes 422 (HQ)", gSupportedPixelFormats[12].name);
  EXPECT_STREQ("ProRes 4444", gSupportedPixelFormats[13].name);
}

TEST(CaptureTablesTest, SampleRows) {
  const SupportedStandard& ntsc = gSupportedStandards[1];
  EXPECT_STREQ("NTSC 4x3", ntsc.name);
  EXPECT_EQ(FourCC("ntsc"), ntsc.displayMode);
  EXPECT_EQ(0x7C05Bu, ntsc.allowedFormats);
  const SupportedStandard& interlaced = gSupportedStandards[20];
  EXPECT_STREQ("HD 1080i 59.94", interlaced.name);
  EXPECT_EQ(30000u, interlaced.timeScale) << "interlaced rows carry the frame rate";
  EXPECT_EQ(1001u, interlaced.frameDuration);
  EXPECT_EQ(0x4u, gSupportedStandards[25].allowedFormats);
  EXPECT_EQ(FourCC("2k25"), gSupportedStandards[25].displayMode);
  EXPECT_EQ(FourCC("dvh5"), gSupportedPixelFormats[11].codecType);
  EXPECT_EQ(0u, gSupportedPixelFormats[11].codecVendor);
}

TEST(CaptureTablesTest, FormatRow2CarriesTheSignatureAsVendor) {
  EXPECT_EQ(FourCC("KTRN"), gSupportedPixelFormats[2].codecVendor);
  EXPECT_EQ(kCaptureSettingsSignature, gSupportedPixelFormats[2].codecVendor);
}

}  // namespace
}  // namespace KTN
