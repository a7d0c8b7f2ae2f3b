// Parses arbitrary text as timecodes, absolute and relative, as a user might type them.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "Util/TimeCode.h"
#include "Util/TimecodeText.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  std::string terminated = text.c_str();  // up to the first NUL, as C callers pass it
  KTN::Util::TimeCode tc = {};
  tc.timeScale = 30000;
  tc.frameDuration = 1001;
  tc.framesPerSecond = 30;
  tc.dropFrame = size > 0 && (data[0] & 1);
  KTN::Util::ConvertStringToTimeCode(terminated.c_str(), &tc);
  char back[12];  // exactly what the text form takes
  KTN::Util::ConvertTimeCodeToString(&tc, back);
  std::string cleaned = text;
  KTN::Util::cleanTimeCode(cleaned);
  KTN::Util::TimeCode base = tc;
  KTN::Util::SetTimeCodeTimeWithInts(&base, 1, 0, 0, 0);
  int frames = 0;
  KTN::Util::relativeTCToAbsoluteTC(base, text, frames);
  // The strict reader of typed timecodes, at the counting rate the first byte picks.
  std::string problem;
  KTN::Util::TimecodeText::IsTimecode(text);
  KTN::Util::TimecodeText::Parse(text, size > 0 ? data[0] % 64 : 0, size > 0 && (data[0] & 64), tc, &problem);
  KTN::Util::TimecodeText::ParseAtPictureRate(text, 1001, 30000, tc, &problem);
  return 0;
}
