// Picture conversion between the simulated card's pixel formats.
#pragma once

#include "Simulator/SimulatedObject.h"

namespace KTN {
namespace Sim {

// Converts a picture into another of the same size through 8-bit RGB (for display, not
// for recording: it loses precision).
class SimulatedConversion : public SimulatedObject<IVeldranVideoConversion> {
 public:
  VeldranResult ConvertFrame(IVeldranVideoFrame* source, IVeldranVideoFrame* destination) override;
};

}  // namespace Sim
}  // namespace KTN
