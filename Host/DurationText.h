// Lengths of time as the host program and the capture window show them.
#pragma once

#include <string>

namespace KTN {

// Whole seconds (a negative length as 0) as "2 h 13 min", "4 min 05 s" or "42 s": how long
// a disk lasts.
std::string DiskTimeText(double seconds);

// Whole seconds (a negative length as 0) as "H:MM:SS", e.g. "0:01:23": how long a take ran.
std::string ElapsedText(double seconds);

}  // namespace KTN
