// The capture settings record: what the plug-in records, persisted by the host as 60 bytes.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace KTN {

struct SupportedStandard;

// Fourteen unsigned 32-bit words and one byte, in host byte order; the host keeps it as an
// opaque 60-byte blob. Holds values copied out of the tables, not indices into them.
struct CaptureSettings {
  uint32_t signature;      // 'KTRN' marks a valid record
  uint32_t version;        // always 3
  uint32_t displayMode;    // the device's display-mode code of the standard
  uint32_t width;          // pixels: the standard's, unless the format fixes it
  uint32_t height;         // lines: the standard's, unless the format fixes it
  uint32_t codecType;      // four-character codec type of the format
  uint32_t codecVendor;    // four-character codec vendor, 0 where the format has none
  uint32_t timeScale;      // time units per second
  uint32_t frameDuration;  // one frame in timeScale units
  uint32_t pixelAspectX;
  uint32_t pixelAspectY;
  uint32_t audioChannels;
  uint32_t audioSampleType;  // bits per sample
  uint32_t audioSampleRate;  // Hz
  uint8_t extraFlag;         // always written as 0; no reader

  // Fills the record from standard row standard, format row format and the audio values,
  // and remembers all five in the user defaults (then synchronizes). Trusts its arguments:
  // no range check and no fallback, and the signature and version are left alone. Called
  // on the host's main thread.
  void Update(int standard, int format, int channels, int type, int rate);

  // As Update, without remembering anything: only the record's video and audio fields.
  void Fill(int standard, int format, int channels, int type, int rate);
  // Whether the record is one the dialog can make and the recording server can record:
  // signed, this version, a named standard's values with a format it allows, 2, 8 or 16
  // channels of 16, 24 or 32 bits at 48000 Hz. Nothing is refused by it: Update and
  // SetDefaults keep any audio values, and a blob from the host needs only its signature
  // and version.
  bool IsRecordable() const;
  // The record is of standard row (a separator never matches): its display mode, rate and
  // horizontal pixel aspect, and either dimension, since a format's fixed size (DV NTSC)
  // may have replaced the other.
  bool IsOfStandard(const SupportedStandard& row) const;
  // More than 30 frames a second: the host counts the recording's frames in pairs.
  bool CountsFramePairs() const {
    return frameDuration && static_cast<double>(timeScale) / frameDuration > 30.0;
  }
  // Registers the default choices, reads the user's current ones and builds a complete,
  // signed record from them.
  void SetDefaults();
};

constexpr uint32_t kCaptureSettingsSignature = 0x4B54524E;  // 'KTRN'
constexpr uint32_t kCaptureSettingsVersion = 3;
constexpr size_t kCaptureSettingsBlobSize = 60;

static_assert(sizeof(CaptureSettings) == kCaptureSettingsBlobSize, "the host's blob is 60 bytes");
static_assert(offsetof(CaptureSettings, signature) == 0, "blob layout");
static_assert(offsetof(CaptureSettings, version) == 4, "blob layout");
static_assert(offsetof(CaptureSettings, displayMode) == 8, "blob layout");
static_assert(offsetof(CaptureSettings, width) == 12, "blob layout");
static_assert(offsetof(CaptureSettings, height) == 16, "blob layout");
static_assert(offsetof(CaptureSettings, codecType) == 20, "blob layout");
static_assert(offsetof(CaptureSettings, codecVendor) == 24, "blob layout");
static_assert(offsetof(CaptureSettings, timeScale) == 28, "blob layout");
static_assert(offsetof(CaptureSettings, frameDuration) == 32, "blob layout");
static_assert(offsetof(CaptureSettings, pixelAspectX) == 36, "blob layout");
static_assert(offsetof(CaptureSettings, pixelAspectY) == 40, "blob layout");
static_assert(offsetof(CaptureSettings, audioChannels) == 44, "blob layout");
static_assert(offsetof(CaptureSettings, audioSampleType) == 48, "blob layout");
static_assert(offsetof(CaptureSettings, audioSampleRate) == 52, "blob layout");
static_assert(offsetof(CaptureSettings, extraFlag) == 56, "blob layout");

// A complete, signed record of these choices (Update, then the signature and version), as the
// host keeps it; the choices are remembered in the user defaults as Update does.
CaptureSettings SignedCaptureSettings(int standard, int format, int channels, int type, int rate);

// The user-defaults keys of the five choices.
extern const char* const kVideoStandardKey;  // row of gSupportedStandards
extern const char* const kVideoFormatKey;    // row of gSupportedPixelFormats
extern const char* const kAudioChannelsKey;
extern const char* const kAudioTypeKey;      // bits per sample
extern const char* const kAudioRateKey;      // Hz

}  // namespace KTN
