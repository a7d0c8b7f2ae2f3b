// The capture settings in one line.
#include "Host/SettingsDescription.h"

#include <stdio.h>

#include "Settings/CaptureTables.h"

namespace KTN {

namespace {

const char kSeparator[] = " \xC2\xB7 ";  // a middle dot between spaces, in UTF-8

// A number with at most two decimals and no trailing zeros: 25, 29.97, 44.1.
std::string Number(double value) {
  char text[32];
  snprintf(text, sizeof text, "%.2f", value);
  std::string number = text;
  while (number.back() == '0') number.pop_back();
  if (number.back() == '.') number.pop_back();
  return number;
}

std::string Standard(const CaptureSettings& s) {
  for (const SupportedStandard& row : gSupportedStandards) {
    if (s.IsOfStandard(row) && row.pixelAspectY == s.pixelAspectY) return row.name;
  }
  std::string size = std::to_string(s.width) + "x" + std::to_string(s.height);
  if (!s.frameDuration) return size;
  return size + " " + Number(static_cast<double>(s.timeScale) / s.frameDuration) + " fps";
}

std::string Format(const CaptureSettings& s) {
  for (const SupportedPixelFormat& row : gSupportedPixelFormats) {
    if (row.codecType == s.codecType) return row.name;
  }
  std::string code = "codec '";
  for (int shift = 24; shift >= 0; shift -= 8) {
    char c = static_cast<char>(s.codecType >> shift);
    code += c >= 0x20 && c < 0x7F ? c : '?';
  }
  return code + "'";
}

std::string Sound(const CaptureSettings& s) {
  if (!s.audioChannels) return "no sound";
  return std::to_string(s.audioChannels) + " ch " + std::to_string(s.audioSampleType) + "-bit " +
         Number(s.audioSampleRate / 1000.0) + " kHz";
}

}  // namespace

std::string SettingsDescription(const CaptureSettings& settings) {
  return Standard(settings) + kSeparator + Format(settings) + kSeparator + Sound(settings);
}

}  // namespace KTN
