// Tests of the one-line description of the capture settings.
#include <gtest/gtest.h>

#include "Host/SettingsDescription.h"
#include "Util/FourCC.h"

namespace KTN {
namespace {

struct DescribedSettings {
  int standard;  // rows of the tables
  int format;
  int channels;
  int bits;
  int rate;
  const char* line;
};

// The middle dots are typed here as the window shows them (UTF-8).
const DescribedSettings kLines[] = {
    {19, 1, 2, 24, 48000, "HD 1080i 50 · Uncompressed 10-bit 4:2:2 · 2 ch 24-bit 48 kHz"},
    {1, 0, 2, 16, 48000, "NTSC 4x3 · Uncompressed 8-bit 4:2:2 · 2 ch 16-bit 48 kHz"},
    // 16x9 differs from 4x3 only in its pixel aspect; DV NTSC fixes the height at 480.
    {2, 4, 8, 16, 48000, "NTSC 16x9 23.98 · DV NTSC · 8 ch 16-bit 48 kHz"},
    {5, 5, 8, 32, 48000, "PAL 16x9 · DV PAL · 8 ch 32-bit 48 kHz"},
    {8, 12, 2, 16, 44100, "HD 720p 59.94 · ProRes 422 (HQ) · 2 ch 16-bit 44.1 kHz"},
    {23, 2, 16, 32, 48000, "2K 1556p 23.976 · Uncompressed RGB 10-bit 4:4:4 · 16 ch 32-bit 48 kHz"},
};

TEST(SettingsDescriptionTest, StandardFormatAndSoundByName) {
  for (const DescribedSettings& expected : kLines) {
    CaptureSettings settings = {};
    settings.Fill(expected.standard, expected.format, expected.channels, expected.bits, expected.rate);
    EXPECT_EQ(expected.line, SettingsDescription(settings)) << "standard " << expected.standard << ", format " << expected.format;
  }
}

TEST(SettingsDescriptionTest, ARecordNoRowMatchesIsDescribedByItsValues) {
  CaptureSettings settings = {};
  settings.Fill(20, 1, 0, 24, 48000);  // HD 1080i 59.94, no channels
  settings.displayMode = Util::FourCC("nope");
  settings.codecType = Util::FourCC("abcd");
  EXPECT_EQ("1920x1080 29.97 fps · codec 'abcd' · no sound", SettingsDescription(settings));
}

}  // namespace
}  // namespace KTN
