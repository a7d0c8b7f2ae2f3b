// One captured picture of the simulated card.
#include "Simulator/SimulatedVideoFrame.h"

#include "Simulator/PixelRows.h"
#include "Simulator/SimulatedTimecode.h"

namespace KTN {
namespace Sim {

SimulatedVideoFrame::SimulatedVideoFrame(std::shared_ptr<FramePool> pool, uint8_t* buffer, const SimulatedMode& mode,
                                         uint32_t pixelFormat, int64_t index, const Util::CTimeCode& timecode,
                                         const SimulatorSettings& settings)
    : mPool(std::move(pool)),
      mBuffer(buffer),
      mMode(mode),
      mPixelFormat(pixelFormat),
      mIndex(index),
      mTimecode(timecode),
      mTimecodeSource(settings.timecode),
      mGetBytesFailure(settings.Injected("GetBytes")),
      mGetTimecodeFailure(settings.Injected("GetTimecode")) {}

SimulatedVideoFrame::~SimulatedVideoFrame() {
  mPool->Give(mBuffer);
}

int32_t SimulatedVideoFrame::GetRowBytes() {
  return static_cast<int32_t>(FrameRowBytes(mPixelFormat, mMode.width));
}

VeldranResult SimulatedVideoFrame::GetBytes(void** buffer) {
  if (!buffer) return kVeldranInvalidArg;
  *buffer = nullptr;
  if (mGetBytesFailure) return mGetBytesFailure;
  if (!mBuffer) return kVeldranOutOfMemory;
  *buffer = mBuffer;
  return kVeldranOK;
}

VeldranResult SimulatedVideoFrame::GetStreamTime(int64_t* frameTime, int64_t* frameDuration, int64_t timeScale) {
  if (!frameTime || !frameDuration || timeScale <= 0) return kVeldranInvalidArg;
  // Exact for the frame's own clock; other scales are rounded down.
  *frameTime = mIndex * mMode.frameDuration * timeScale / mMode.timeScale;
  *frameDuration = mMode.frameDuration * timeScale / mMode.timeScale;
  return kVeldranOK;
}

VeldranResult SimulatedVideoFrame::GetTimecode(uint32_t format, IVeldranTimecode** timecode) {
  if (!timecode) return kVeldranInvalidArg;
  *timecode = nullptr;
  if (mGetTimecodeFailure) return mGetTimecodeFailure;
  bool carried = (format == ktnTimecodeRP188 && mTimecodeSource == TimecodeSource::kRP188) ||
                 (format == ktnTimecodeVITC && mTimecodeSource == TimecodeSource::kVITC);
  if (!carried) return kVeldranNotFound;
  *timecode = new SimulatedTimecode(mTimecode);
  return kVeldranOK;
}

}  // namespace Sim
}  // namespace KTN
