// Tests of the recording rate: the uncompressed types' rows, the codecs' rates, the sound.
#include <gtest/gtest.h>

#include "Host/RecordingRate.h"
#include "Settings/CaptureTables.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

TEST(RecordingRateTest, PicturesAndSoundOfEachKindOfFormat) {
  // HD 1080p 60, v210 (rows of 5120 bytes), 2 channels of 24-bit sound.
  CaptureSettings v210 = SignedCaptureSettings(18, 1, 2, 24, 48000);
  EXPECT_DOUBLE_EQ(5120.0 * 1080 * 60 + 2 * 3 * 48000, RecordingBytesPerSecond(v210));
  // PAL DV at 25 Mbit/s, 8 channels of 16-bit sound.
  CaptureSettings dv = SignedCaptureSettings(4, 5, 8, 16, 48000);
  EXPECT_DOUBLE_EQ(25e6 / 8 + 8 * 2 * 48000, RecordingBytesPerSecond(dv));
  // JPEG: by the pixel, less than the 2 bytes of uncompressed 8-bit pictures.
  CaptureSettings jpeg = SignedCaptureSettings(13, 3, 2, 16, 48000);
  CaptureSettings twoVuy = SignedCaptureSettings(13, 0, 2, 16, 48000);
  EXPECT_GT(RecordingBytesPerSecond(jpeg), 0);
  EXPECT_LT(RecordingBytesPerSecond(jpeg), RecordingBytesPerSecond(twoVuy));
}

TEST(RecordingRateTest, TimeLeftIsTheFreeSpaceAtThatRate) {
  Util::ScratchFolder folder;
  CaptureSettings settings = SignedCaptureSettings(4, 0, 2, 16, 48000);
  double seconds = RecordingSecondsLeft(folder.File("take.mov"), settings);
  EXPECT_GT(seconds, 0);
  EXPECT_EQ(-1, RecordingSecondsLeft("/no such folder/take.mov", settings));
}

}  // namespace
}  // namespace KTN
