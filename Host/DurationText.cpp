// Lengths of time as the host program and the capture window show them.
#include "Host/DurationText.h"

#include <stdio.h>

namespace KTN {

namespace {

long long WholeSeconds(double seconds) {
  return seconds > 0 ? static_cast<long long>(seconds) : 0;
}

}  // namespace

std::string DiskTimeText(double seconds) {
  const long long whole = WholeSeconds(seconds);
  char text[64];
  if (whole >= 3600) {
    snprintf(text, sizeof text, "%lld h %02lld min", whole / 3600, whole / 60 % 60);
  } else if (whole >= 60) {
    snprintf(text, sizeof text, "%lld min %02lld s", whole / 60, whole % 60);
  } else {
    snprintf(text, sizeof text, "%lld s", whole);
  }
  return text;
}

std::string ElapsedText(double seconds) {
  const long long whole = WholeSeconds(seconds);
  char text[32];
  snprintf(text, sizeof text, "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60);
  return text;
}

}  // namespace KTN
