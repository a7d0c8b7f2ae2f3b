// A frame's timecode as the simulated card reads it from the signal.
#pragma once

#include "DeviceAPI/VeldranObject.h"
#include "Util/TimeCode.h"

namespace KTN {
namespace Sim {

class SimulatedTimecode : public VeldranObject<IVeldranTimecode> {
 public:
  explicit SimulatedTimecode(const Util::CTimeCode& timecode) : mTimecode(timecode) {}

  uint32_t GetBCD() override;
  VeldranResult GetComponents(uint8_t* hours, uint8_t* minutes, uint8_t* seconds, uint8_t* frames) override;
  VeldranResult GetString(char** text) override;
  uint32_t GetFlags() override;

 private:
  Util::CTimeCode mTimecode;
};

}  // namespace Sim
}  // namespace KTN
