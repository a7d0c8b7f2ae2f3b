// Timecodes the user types on the command line: "HH:MM:SS:FF", or "HH:MM:SS;FF" at drop frame.
#pragma once

#include <string>

#include "Util/TimeCode.h"

namespace KTN {

// Reads text as a timecode for a standard counting framesPerSecond, drop frame or not: true
// with tc's four fields and rate fields set, or false with *problem saying why in the user's
// words. Only two digits each of hours (below 24), minutes and seconds (below 60) and frames
// (below the rate), separated by ':', are taken; ';' before the frames says drop frame and is
// refused at a rate that does not drop. A drop-frame label that the count skips (frames 00
// and 01 of a minute not divisible by ten) is refused too.
bool ParseTimecodeText(const std::string& text, unsigned framesPerSecond, bool dropFrame, Util::TimeCode& tc,
                       std::string* problem);

// Whether text has the shape of a timecode at any rate (as above, frames below 60).
bool IsTimecodeText(const std::string& text);

}  // namespace KTN
