// The sound of one captured frame.
#include "Simulator/SimulatedAudioPacket.h"

#include "Simulator/TestSignal.h"

namespace KTN {
namespace Sim {

SimulatedAudioPacket::SimulatedAudioPacket(int64_t firstSample, int sampleFrames, int channels, int bits,
                                           ToneFault fault, VeldranResult getBytesFailure)
    : mFirstSample(firstSample),
      mSampleFrames(sampleFrames),
      mSamples(new (std::nothrow) uint8_t[static_cast<size_t>(sampleFrames) * channels * bits / 8 + 1]),
      mGetBytesFailure(getBytesFailure) {
  if (mSamples) TestTone::Render(firstSample, sampleFrames, channels, bits, mSamples.get(), fault);
}

VeldranResult SimulatedAudioPacket::GetBytes(void** buffer) {
  if (!buffer) return kVeldranInvalidArg;
  *buffer = nullptr;
  if (mGetBytesFailure) return mGetBytesFailure;
  if (!mSamples) return kVeldranOutOfMemory;
  *buffer = mSamples.get();
  return kVeldranOK;
}

VeldranResult SimulatedAudioPacket::GetPacketTime(int64_t* packetTime, int64_t timeScale) {
  if (!packetTime || timeScale <= 0) return kVeldranInvalidArg;
  *packetTime = mFirstSample * timeScale / TestTone::kSampleRate;
  return kVeldranOK;
}

}  // namespace Sim
}  // namespace KTN
