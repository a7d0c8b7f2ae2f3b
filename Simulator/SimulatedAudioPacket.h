// The sound of one captured frame from the simulated card.
#pragma once

#include <memory>

#include "DeviceAPI/VeldranObject.h"
#include "Simulator/TestSignal.h"

namespace KTN {
namespace Sim {

class SimulatedAudioPacket : public VeldranObject<IVeldranAudioInputPacket> {
 public:
  // sampleFrames frames of channels interleaved samples of bits (16 or 32), starting at
  // sample number firstSample of the stream (48 kHz), the tone suffering fault.
  // getBytesFailure: an injected failure.
  SimulatedAudioPacket(int64_t firstSample, int sampleFrames, int channels, int bits, ToneFault fault,
                       VeldranResult getBytesFailure);

  int32_t GetSampleFrameCount() override { return mSampleFrames; }
  VeldranResult GetBytes(void** buffer) override;
  VeldranResult GetPacketTime(int64_t* packetTime, int64_t timeScale) override;

 private:
  int64_t mFirstSample;
  int mSampleFrames;
  std::unique_ptr<uint8_t[]> mSamples;
  VeldranResult mGetBytesFailure;
};

}  // namespace Sim
}  // namespace KTN
