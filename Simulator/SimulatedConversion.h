// Picture conversion between the simulated card's pixel formats.
#pragma once

#include "DeviceAPI/VeldranObject.h"

namespace KTN {
namespace Sim {

// Converts a picture into another of the same size through 8-bit RGB (for display, not
// for recording: it loses precision).
class SimulatedConversion : public VeldranObject<IVeldranVideoConversion> {
 public:
  VeldranResult ConvertFrame(IVeldranVideoFrame* source, IVeldranVideoFrame* destination) override;
};

}  // namespace Sim
}  // namespace KTN
