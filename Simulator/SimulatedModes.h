// The simulated card's display modes: sizes, exact rates, field order and timecode counting.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "Util/TimeCode.h"

namespace KTN {
namespace Sim {

struct SimulatedMode {
  uint32_t code;           // the display mode's four-character code
  const char* name;
  int32_t width;
  int32_t height;
  int64_t frameDuration;   // a frame lasts frameDuration / timeScale seconds
  int64_t timeScale;
  uint32_t fieldDominance;
  Util::TimeCodeFormat timecodeFormat;  // how the timecode counts (drop frame at 29.97 and 59.94)
  bool hd;                 // BT.709 colours (HD and 2K) rather than BT.601
};

extern const SimulatedMode kSimulatedModes[];
extern const size_t kSimulatedModeCount;

// The mode of a code, or null.
const SimulatedMode* FindSimulatedMode(uint32_t code);

}  // namespace Sim
}  // namespace KTN
