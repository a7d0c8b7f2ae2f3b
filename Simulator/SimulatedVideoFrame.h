// One captured picture of the simulated card, with its stream time and timecode.
#pragma once

#include <memory>

#include "Simulator/FramePool.h"
#include "Simulator/SimulatedModes.h"
#include "DeviceAPI/VeldranObject.h"
#include "Simulator/SimulatorSettings.h"
#include "Util/TimeCode.h"

namespace KTN {
namespace Sim {

class SimulatedVideoFrame : public VeldranObject<IVeldranVideoInputFrame> {
 public:
  // Picture number `index` of mode in pixelFormat, in buffer, which it takes from pool and
  // gives back when released. timecode is the frame's position on the deck and house
  // clock; the signal carries it as the settings say (RP188, VITC or not at all).
  SimulatedVideoFrame(std::shared_ptr<FramePool> pool, uint8_t* buffer, const SimulatedMode& mode,
                      uint32_t pixelFormat, int64_t index, const Util::CTimeCode& timecode,
                      const SimulatorSettings& settings);

  // The frame's position as the deck knows it, whether or not the signal carries timecode.
  const Util::CTimeCode& DeckTimecode() const { return mTimecode; }

  int32_t GetWidth() override { return mMode.width; }
  int32_t GetHeight() override { return mMode.height; }
  int32_t GetRowBytes() override;
  uint32_t GetPixelFormat() override { return mPixelFormat; }
  uint32_t GetFlags() override { return 0; }
  VeldranResult GetBytes(void** buffer) override;
  VeldranResult GetStreamTime(int64_t* frameTime, int64_t* frameDuration, int64_t timeScale) override;
  VeldranResult GetTimecode(uint32_t format, IVeldranTimecode** timecode) override;

 protected:
  ~SimulatedVideoFrame() override;

 private:
  std::shared_ptr<FramePool> mPool;
  uint8_t* mBuffer;
  const SimulatedMode& mMode;
  uint32_t mPixelFormat;
  int64_t mIndex;
  Util::CTimeCode mTimecode;
  TimecodeSource mTimecodeSource;
  VeldranResult mGetBytesFailure;
  VeldranResult mGetTimecodeFailure;
};

}  // namespace Sim
}  // namespace KTN
