// Timecodes given as text, read strictly by one set of rules.
#include "Util/TimecodeText.h"

#include <ctype.h>

namespace KTN {
namespace Util {

namespace {

// The highest counting rate of any standard.
constexpr unsigned kMostFramesPerSecond = 60;

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

bool Refuse(std::string* problem, const std::string& why) {
  if (problem) *problem = why;
  return false;
}

}  // namespace

bool TimecodeText::Parse(const std::string& text, unsigned framesPerSecond, bool dropFrame, TimeCode& tc,
                         std::string* problem) {
  const std::string quoted = "\"" + text + "\"";
  if (!HasTimecodeShape(text)) return Refuse(problem, quoted + " is not a timecode HH:MM:SS:FF (HH:MM:SS;FF at drop frame)");
  if (framesPerSecond == 0 || framesPerSecond > kMostFramesPerSecond) {
    return Refuse(problem, quoted + " cannot be read at " + std::to_string(framesPerSecond) + " frames a second");
  }
  TimeCode read = tc;
  ConvertStringToTimeCode(text.c_str(), &read);
  if (read.hours > 23 || read.minutes > 59 || read.seconds > 59) {
    return Refuse(problem, quoted + " is not a time of day: hours go to 23, minutes and seconds to 59");
  }
  if (read.frames >= framesPerSecond) {
    return Refuse(problem, quoted + " has frame " + std::to_string(read.frames) + ", but the standard counts " +
                               std::to_string(framesPerSecond) + " frames a second (00 to " +
                               std::to_string(framesPerSecond - 1) + ")");
  }
  if (text[8] == ';' && !dropFrame) {
    return Refuse(problem, quoted + " is a drop-frame timecode (';'), but the standard counts without dropping: write " +
                               text.substr(0, 8) + ":" + text.substr(9));
  }
  // Drop frame skips the first two labels (four at 60) of every minute but each tenth.
  const unsigned skipped = framesPerSecond / 15;
  if (dropFrame && read.seconds == 0 && read.minutes % 10 != 0 && read.frames < skipped) {
    return Refuse(problem, quoted + " does not exist in drop-frame counting: minute " + text.substr(3, 2) +
                               " starts at frame " + (skipped < 10 ? "0" : "") + std::to_string(skipped));
  }
  read.framesPerSecond = static_cast<uint8_t>(framesPerSecond);
  read.dropFrame = dropFrame;
  tc = read;
  return true;
}

bool TimecodeText::ParseAtPictureRate(const std::string& text, uint32_t frameDuration, uint32_t timeScale,
                                      TimeCode& tc, std::string* problem) {
  if (frameDuration == 0) return Refuse(problem, "\"" + text + "\" cannot be read at a picture rate without frames");
  const unsigned framesPerSecond = (timeScale + frameDuration - 1) / frameDuration;
  const bool dropFrame = frameDuration == 1001 && (framesPerSecond == 30 || framesPerSecond == 60);
  return Parse(text, framesPerSecond, dropFrame, tc, problem);
}

int64_t TimecodeText::FrameAt(const std::string& text, TimeCodeFormat format) {
  if (format == tcfUnknown) return -1;
  TimeCode tc = {};
  if (!Parse(text, static_cast<unsigned>(tcfToTps(format)), tcfIsDrop(format), tc, nullptr)) return -1;
  return CTimeCode::FromNumbers(format, tc.hours, tc.minutes, tc.seconds, tc.frames).ToFrame(format);
}

bool TimecodeText::IsTimecode(const std::string& text) {
  TimeCode tc = {};
  if (!HasTimecodeShape(text) || text[8] == ':') return Parse(text, kMostFramesPerSecond, false, tc, nullptr);
  // A drop-frame label: one that the count at 30 or at 60 frames a second has.
  return Parse(text, 30, true, tc, nullptr) || Parse(text, 60, true, tc, nullptr);
}

}  // namespace Util
}  // namespace KTN
