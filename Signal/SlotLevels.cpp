// A slot's measured levels as lines of the levels sidecar, written and read.
#include "Signal/SlotLevels.h"

#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace KTN {
namespace {

// One figure as written: one decimal (three for a change), "-inf" below any level.
void Put(std::string& line, float value, int decimals) {
  if (std::isinf(value) && value < 0) {
    line += " -inf";
    return;
  }
  char text[32];
  snprintf(text, sizeof text, " %.*f", decimals, std::isfinite(value) ? static_cast<double>(value) : 0.0);
  line += text;
}

// Reads the next field of line at *at as a number ("-inf" included); false at the end.
bool Take(const char*& at, float* value) {
  while (*at == ' ') ++at;
  if (!*at || *at == '\n' || *at == '\r') return false;
  char* end = nullptr;
  errno = 0;
  double read = strtod(at, &end);
  if (end == at || errno == ERANGE || std::isnan(read) || (*end && *end != ' ' && *end != '\n' && *end != '\r')) {
    return false;
  }
  at = end;
  *value = static_cast<float>(read);
  return true;
}

bool TakeWhole(const char*& at, long long* value) {
  while (*at == ' ') ++at;
  if (*at < '0' || *at > '9') return false;
  char* end = nullptr;
  errno = 0;
  long long read = strtoll(at, &end, 10);
  if (errno || (*end && *end != ' ' && *end != '\n' && *end != '\r') || read > (1LL << 40)) return false;
  at = end;
  *value = read;
  return true;
}

bool AtEnd(const char* at) {
  while (*at == ' ' || *at == '\r' || *at == '\n') ++at;
  return !*at;
}

}  // namespace

std::string SlotLevels::Header(int64_t rateNumerator, int64_t rateDenominator, int channels) {
  char text[160];
  snprintf(text, sizeof text, "%s# rate %lld/%lld\n# channels %d\n", kFirstLine, static_cast<long long>(rateNumerator),
           static_cast<long long>(rateDenominator), channels);
  return text;
}

std::string SlotLevels::Line(const PictureLevels& picture) {
  std::string line = "P " + std::to_string(picture.slot);
  Put(line, picture.mean, 1);
  Put(line, picture.minimum, 1);
  Put(line, picture.maximum, 1);
  if (picture.hasChange) {
    Put(line, picture.changeDb, 1);
  } else {
    line += " -";
  }
  return line + "\n";
}

std::string SlotLevels::Line(const SoundLevels& sound) {
  std::string line = "S " + std::to_string(sound.slot);
  for (size_t c = 0; c < sound.peakDb.size() && c < sound.rmsDb.size(); ++c) {
    Put(line, sound.peakDb[c], 1);
    Put(line, sound.rmsDb[c], 1);
  }
  return line + "\n";
}

SlotLevels::LineKind SlotLevels::Parse(const std::string& line, int64_t* rateNumerator, int64_t* rateDenominator,
                                       int* channels, PictureLevels* picture, SoundLevels* sound) {
  const char* at = line.c_str();
  if (strlen(at) != line.size()) return LineKind::kNone;
  long long a = 0, b = 0;
  if (sscanf(at, "# rate %lld/%lld", &a, &b) == 2) {
    if (a <= 0 || b <= 0 || a > 1000000 || b > 1000000) return LineKind::kNone;
    *rateNumerator = a;
    *rateDenominator = b;
    return LineKind::kRate;
  }
  int n = 0;
  if (sscanf(at, "# channels %d", &n) == 1) {
    if (n < 0 || n > 64) return LineKind::kNone;
    *channels = n;
    return LineKind::kChannels;
  }
  if (at[0] == 'P' && at[1] == ' ') {
    at += 2;
    PictureLevels read;
    if (!TakeWhole(at, &a)) return LineKind::kNone;
    read.slot = a;
    if (!Take(at, &read.mean) || !Take(at, &read.minimum) || !Take(at, &read.maximum)) return LineKind::kNone;
    while (*at == ' ') ++at;
    if (*at == '-' && (at[1] == '\n' || at[1] == '\0' || at[1] == '\r')) {
      ++at;
    } else {
      if (!Take(at, &read.changeDb)) return LineKind::kNone;
      read.hasChange = true;
    }
    if (!AtEnd(at)) return LineKind::kNone;
    *picture = read;
    return LineKind::kPicture;
  }
  if (at[0] == 'S' && at[1] == ' ') {
    at += 2;
    SoundLevels read;
    if (!TakeWhole(at, &a)) return LineKind::kNone;
    read.slot = a;
    float peak = 0, rms = 0;
    while (Take(at, &peak)) {
      if (!Take(at, &rms) || read.peakDb.size() >= 64) return LineKind::kNone;
      read.peakDb.push_back(peak);
      read.rmsDb.push_back(rms);
    }
    if (!AtEnd(at)) return LineKind::kNone;
    *sound = read;
    return LineKind::kSound;
  }
  return LineKind::kNone;
}

}  // namespace KTN
