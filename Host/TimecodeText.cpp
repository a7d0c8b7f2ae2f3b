// Timecodes the user types on the command line, read strictly.
#include "Host/TimecodeText.h"

#include <ctype.h>

namespace KTN {

namespace {

// The shape "HH:MM:SS:FF" or "HH:MM:SS;FF": digits and separators where they belong.
bool HasTimecodeShape(const std::string& text) {
  if (text.size() != 11) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (i == 2 || i == 5) {
      if (c != ':') return false;
    } else if (i == 8) {
      if (c != ':' && c != ';') return false;
    } else if (!isdigit(static_cast<unsigned char>(c))) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool ParseTimecodeText(const std::string& text, unsigned framesPerSecond, bool dropFrame, Util::TimeCode& tc,
                       std::string* problem) {
  auto refuse = [problem](const std::string& why) {
    if (problem) *problem = why;
    return false;
  };
  if (!HasTimecodeShape(text)) return refuse("\"" + text + "\" is not a timecode HH:MM:SS:FF (HH:MM:SS;FF at drop frame)");
  Util::TimeCode read = {};
  Util::ConvertStringToTimeCode(text.c_str(), &read);
  if (read.hours > 23 || read.minutes > 59 || read.seconds > 59) {
    return refuse("\"" + text + "\" is not a time of day: hours go to 23, minutes and seconds to 59");
  }
  if (read.frames >= framesPerSecond) {
    return refuse("\"" + text + "\" has frame " + std::to_string(read.frames) + ", but the standard counts " +
                  std::to_string(framesPerSecond) + " frames a second (00 to " + std::to_string(framesPerSecond - 1) + ")");
  }
  const bool semicolon = text[8] == ';';
  if (semicolon && !dropFrame) {
    return refuse("\"" + text + "\" is a drop-frame timecode (';'), but the standard counts without dropping: write " +
                  text.substr(0, 8) + ":" + text.substr(9));
  }
  // Drop frame skips the first two labels (four at 60) of every minute but each tenth.
  const unsigned skipped = framesPerSecond / 15;
  if (dropFrame && read.seconds == 0 && read.minutes % 10 != 0 && read.frames < skipped) {
    return refuse("\"" + text + "\" does not exist in drop-frame counting: minute " + text.substr(3, 2) + " starts at frame " +
                  (skipped < 10 ? "0" : "") + std::to_string(skipped));
  }
  read.framesPerSecond = static_cast<uint8_t>(framesPerSecond);
  read.dropFrame = dropFrame;
  tc = read;
  return true;
}

bool IsTimecodeText(const std::string& text) {
  // The fields' ranges at the highest rate, whichever the separator.
  std::string nonDrop = text;
  if (nonDrop.size() == 11 && nonDrop[8] == ';') nonDrop[8] = ':';
  Util::TimeCode tc = {};
  return ParseTimecodeText(nonDrop, 60, false, tc, nullptr);
}

}  // namespace KTN
