// How fast a recording fills its disk.
#include "Host/RecordingRate.h"

#include <sys/statvfs.h>

#include "Util/FourCC.h"
#include "Util/RowBytes.h"

namespace KTN {

namespace {

using Util::FourCC;

// The compressed types' pictures: a fixed bit rate (the DV family), or bytes per pixel
// (JPEG at its best quality, ProRes at the rates of its profiles at 1080p29.97).
struct CompressedRate {
  uint32_t codecType;
  double bitsPerSecond;  // 0: by the pixel
  double bytesPerPixel;
};

const CompressedRate kCompressedRates[] = {
    {FourCC("jpeg"), 0, 1.5},
    {FourCC("dvc "), 25e6, 0},  {FourCC("dvcp"), 25e6, 0},
    {FourCC("dv5n"), 50e6, 0},  {FourCC("dv5p"), 50e6, 0},
    {FourCC("dvh6"), 100e6, 0}, {FourCC("dvh5"), 100e6, 0}, {FourCC("dvhp"), 100e6, 0}, {FourCC("dvhq"), 100e6, 0},
    {FourCC("apch"), 0, 220e6 / 8 / (1920.0 * 1080 * 30000 / 1001)},
    {FourCC("ap4h"), 0, 330e6 / 8 / (1920.0 * 1080 * 30000 / 1001)},
};

}  // namespace

int FramesPerCount(const CaptureSettings& s) {
  return s.CountsFramePairs() ? 2 : 1;
}

double RecordingBytesPerSecond(const CaptureSettings& s) {
  if (!s.frameDuration) return 0;
  const double framesPerSecond = static_cast<double>(s.timeScale) / s.frameDuration;
  double picture = 0;
  if (s.codecType == FourCC("2vuy") || s.codecType == FourCC("v210") || s.codecType == FourCC("r210")) {
    picture = static_cast<double>(Util::RowBytes(s.codecType, s.width)) * s.height * framesPerSecond;
  } else {
    for (const CompressedRate& rate : kCompressedRates) {
      if (rate.codecType != s.codecType) continue;
      picture = rate.bitsPerSecond ? rate.bitsPerSecond / 8
                                   : rate.bytesPerPixel * s.width * s.height * framesPerSecond;
    }
  }
  const double sound = static_cast<double>(s.audioChannels) * (s.audioSampleType / 8) * s.audioSampleRate;
  return picture + sound;
}

double RecordingSecondsLeft(const std::string& moviePath, const CaptureSettings& settings) {
  size_t slash = moviePath.rfind('/');
  std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : moviePath.substr(0, slash);
  struct statvfs disk;
  if (statvfs(folder.c_str(), &disk) != 0) return -1;
  const double rate = RecordingBytesPerSecond(settings);
  if (rate <= 0) return -1;
  return static_cast<double>(disk.f_bavail) * static_cast<double>(disk.f_frsize) / rate;
}

}  // namespace KTN
