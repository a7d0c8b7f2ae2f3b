// A frame's timecode.
#include "Simulator/SimulatedTimecode.h"

#include <string.h>

namespace KTN {
namespace Sim {

uint32_t SimulatedTimecode::GetBCD() {
  return mTimecode.ToBCD();
}

VeldranResult SimulatedTimecode::GetComponents(uint8_t* hours, uint8_t* minutes, uint8_t* seconds, uint8_t* frames) {
  if (!hours || !minutes || !seconds || !frames) return kVeldranInvalidArg;
  *hours = mTimecode.hours;
  *minutes = mTimecode.minutes;
  *seconds = mTimecode.seconds;
  *frames = mTimecode.frames;
  return kVeldranOK;
}

VeldranResult SimulatedTimecode::GetString(char** text) {
  if (!text) return kVeldranInvalidArg;
  *text = strdup(mTimecode.ToString(false).c_str());
  return *text ? kVeldranOK : kVeldranOutOfMemory;
}

uint32_t SimulatedTimecode::GetFlags() {
  return Util::tcfIsDrop(mTimecode.format) ? static_cast<uint32_t>(ktnTimecodeFlagDropFrame) : 0u;
}

}  // namespace Sim
}  // namespace KTN
