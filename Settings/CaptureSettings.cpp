// The capture settings record, filled from the tables and the user's remembered choices.
#include "Settings/CaptureSettings.h"

#include <string.h>

#include "Settings/CaptureTables.h"
#include "Settings/UserDefaults.h"

namespace KTN {

const char* const kVideoStandardKey = "com_kestrin_design_premiere_record_video_standard";
const char* const kVideoFormatKey = "com_kestrin_design_premiere_record_video_format";
const char* const kAudioChannelsKey = "com_kestrin_design_premiere_record_audio_channels";
const char* const kAudioTypeKey = "com_kestrin_design_premiere_record_audio_type";
const char* const kAudioRateKey = "com_kestrin_design_premiere_record_audio_rate";

namespace {

bool IsAudioChannelCount(int channels) {
  return channels == 2 || channels == 8 || channels == 16;
}

bool IsAudioSampleType(int bits) {
  return bits == 16 || bits == 24 || bits == 32;
}

bool IsAudioSampleRate(int rate) {
  return rate == 48000;
}

}  // namespace

void CaptureSettings::Update(int standard, int format, int channels, int type, int rate) {
  Fill(standard, format, channels, type, rate);
  UserDefaults& defaults = UserDefaults::Standard();
  defaults.SetInteger(kVideoStandardKey, standard);
  defaults.SetInteger(kVideoFormatKey, format);
  defaults.SetInteger(kAudioChannelsKey, channels);
  defaults.SetInteger(kAudioTypeKey, type);
  defaults.SetInteger(kAudioRateKey, rate);
  defaults.Synchronize();  // a failure is reported there; the record stays valid
}

void CaptureSettings::Fill(int standard, int format, int channels, int type, int rate) {
  const SupportedStandard& videoStandard = gSupportedStandards[standard];
  const SupportedPixelFormat& pixelFormat = gSupportedPixelFormats[format];
  displayMode = videoStandard.displayMode;
  width = videoStandard.width;
  height = videoStandard.height;
  codecType = pixelFormat.codecType;
  codecVendor = pixelFormat.codecVendor;
  timeScale = videoStandard.timeScale;
  frameDuration = videoStandard.frameDuration;
  pixelAspectX = videoStandard.pixelAspectX;
  pixelAspectY = videoStandard.pixelAspectY;
  if (pixelFormat.fixedWidth) width = pixelFormat.fixedWidth;
  if (pixelFormat.fixedHeight) height = pixelFormat.fixedHeight;
  audioChannels = static_cast<uint32_t>(channels);
  audioSampleType = static_cast<uint32_t>(type);
  audioSampleRate = static_cast<uint32_t>(rate);
  extraFlag = 0;
}

bool CaptureSettings::IsOfStandard(const SupportedStandard& row) const {
  return row.name && row.displayMode == displayMode && row.timeScale == timeScale && row.frameDuration == frameDuration &&
         row.pixelAspectX == pixelAspectX && (row.width == width || row.height == height);
}

bool CaptureSettings::IsRecordable() const {
  if (signature != kCaptureSettingsSignature || version != kCaptureSettingsVersion) return false;
  if (!IsAudioChannelCount(static_cast<int>(audioChannels)) || !IsAudioSampleType(static_cast<int>(audioSampleType)) ||
      !IsAudioSampleRate(static_cast<int>(audioSampleRate))) {
    return false;
  }
  for (size_t s = 0; s < kSupportedStandardCount; ++s) {
    if (!gSupportedStandards[s].name) continue;
    for (size_t f = 0; f < kSupportedPixelFormatCount; ++f) {
      if (!(gSupportedStandards[s].allowedFormats & (1u << f))) continue;
      CaptureSettings made = *this;
      made.Fill(static_cast<int>(s), static_cast<int>(f), static_cast<int>(audioChannels),
                static_cast<int>(audioSampleType), static_cast<int>(audioSampleRate));
      made.extraFlag = extraFlag;  // no reader: any value will do
      // A row without a vendor takes the recording server's, which may not be known yet.
      if (made.codecVendor == 0) made.codecVendor = codecVendor;
      if (memcmp(&made, this, kCaptureSettingsBlobSize) == 0) return true;
    }
  }
  return false;
}

void CaptureSettings::SetDefaults() {
  // A stored standard that is not a named row, or a format outside the table, reads as
  // unset, so that a hand-edited file can never index past the tables. The audio values
  // index nothing and are kept as stored: the recording server's Prepare is what refuses a
  // layout it cannot record.
  const UserDefaults::Registration registrations[] = {
      {kVideoStandardKey, 1, IsNamedStandardIndex},
      {kVideoFormatKey, 0, IsPixelFormatIndex},
      {kAudioChannelsKey, 2, nullptr},
      {kAudioTypeKey, 16, nullptr},
      {kAudioRateKey, 48000, nullptr},
  };
  UserDefaults& defaults = UserDefaults::Standard();
  defaults.RegisterDefaults(registrations, sizeof registrations / sizeof registrations[0]);
  int standard = defaults.IntegerForKey(kVideoStandardKey);
  int format = defaults.IntegerForKey(kVideoFormatKey);
  int channels = defaults.IntegerForKey(kAudioChannelsKey);
  int type = defaults.IntegerForKey(kAudioTypeKey);
  int rate = defaults.IntegerForKey(kAudioRateKey);
  Update(standard, format, channels, type, rate);
  signature = kCaptureSettingsSignature;
  version = kCaptureSettingsVersion;
}

CaptureSettings SignedCaptureSettings(int standard, int format, int channels, int type, int rate) {
  CaptureSettings settings = {};
  settings.Update(standard, format, channels, type, rate);
  settings.signature = kCaptureSettingsSignature;
  settings.version = kCaptureSettingsVersion;
  return settings;
}

}  // namespace KTN
