// The vocabulary of capture choices: the video standards and recording formats tables.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace KTN {

// One video standard. A row whose name is null is a menu separator and is never chosen.
// The row index identifies the standard in the user defaults and in menu tags.
struct SupportedStandard {
  const char* name;
  uint32_t displayMode;  // the capture device's display-mode code
  uint32_t width;        // pixels
  uint32_t height;       // lines
  uint32_t timeScale;    // time units per second
  uint32_t frameDuration;  // one frame in timeScale units; interlaced rows carry the frame rate
  uint32_t pixelAspectX;
  uint32_t pixelAspectY;
  // Bit i allows format row i. Only bits 0..13 name a format; higher bits are ignored.
  uint32_t allowedFormats;
};

// One recording format. A fixed width or height of 0 means the standard's size holds.
// The row index identifies the format in the user defaults and in menu tags.
struct SupportedPixelFormat {
  const char* name;
  uint32_t codecType;
  uint32_t codecVendor;  // 0 where the format has none
  uint32_t fixedWidth;
  uint32_t fixedHeight;
};

constexpr size_t kSupportedStandardCount = 26;
constexpr size_t kSupportedPixelFormatCount = 14;

extern const SupportedStandard gSupportedStandards[kSupportedStandardCount];
// Not const: the record module fills the vendor of the rows that have none with the recording
// server's answer when it opens (shared by every instance, written on the host's thread).
extern SupportedPixelFormat gSupportedPixelFormats[kSupportedPixelFormatCount];

// True when index names a row of the standards table that is not a separator.
bool IsNamedStandardIndex(int index);
// True when index names a row of the formats table.
bool IsPixelFormatIndex(int index);

}  // namespace KTN
