// Timecodes given as text by a user or a setting: "HH:MM:SS:FF", or "HH:MM:SS;FF" at drop frame, read strictly.
#pragma once

#include <stdint.h>

#include <string>

#include "Util/TimeCode.h"

namespace KTN {
namespace Util {

// One set of rules for every timecode a person types or sets, in the host program and the
// simulated card alike. Only the two shapes are taken: two digits each of hours (below 24),
// minutes and seconds (below 60) and frames (below the rate), separated by ':'; ';' before
// the frames says drop frame and is refused at a rate that does not drop. A drop-frame label
// that the count skips (frames 00 and 01, or 00 to 03 at 60, of a minute not divisible by
// ten) is refused too. No state; any thread.
class TimecodeText {
 public:
  // Reads text as a timecode counting framesPerSecond, drop frame or not: true with tc's four
  // fields and its framesPerSecond and dropFrame set (the rest of tc untouched), or false
  // with *problem, when given, saying why in the user's words.
  static bool Parse(const std::string& text, unsigned framesPerSecond, bool dropFrame, TimeCode& tc,
                    std::string* problem);
  // The same at the counting of a picture rate of timeScale / frameDuration per second: the
  // rate rounded up to whole frames, drop frame for the rates of 1001 units a frame that
  // count 30 or 60.
  static bool ParseAtPictureRate(const std::string& text, uint32_t frameDuration, uint32_t timeScale, TimeCode& tc,
                                 std::string* problem);
  // The frame number of text counted from 00:00:00:00 at format (its rate, drop frame or
  // not), text read as Parse reads it there; -1 when it is no timecode there or the format
  // is unknown.
  static int64_t FrameAt(const std::string& text, TimeCodeFormat format);
  // Whether text is a timecode at some rate, for text read before the rate is known: with
  // ':' as Parse at 60 frames a second; with ';' a label that drop-frame counting at 30 or
  // at 60 frames a second has.
  static bool IsTimecode(const std::string& text);
};

}  // namespace Util
}  // namespace KTN
