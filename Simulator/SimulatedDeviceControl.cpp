// The simulated card's device control.
#include "Simulator/SimulatedDeviceControl.h"

#include <stdio.h>
#include <string.h>

#include "Simulator/SimulatedInput.h"
#include "Simulator/SimulatedModes.h"
#include "Simulator/SimulatedVideoFrame.h"
#include "Util/TimeCode.h"

namespace KTN {
namespace Sim {

namespace {

// A BCD timecode as a comparable count of frames at a counting base of 60 (the largest),
// so that frame fields of any rate compare in order.
uint64_t BCDOrder(uint32_t bcd) {
  Util::TimeCode tc = {};
  Util::ConvertFrameCountBCDToTimeCode(bcd, &tc);
  return ((static_cast<uint64_t>(tc.hours) * 60 + tc.minutes) * 60 + tc.seconds) * 60 + tc.frames;
}

}  // namespace

SimulatedDeviceControl::SimulatedDeviceControl(const SimulatorSettings& settings) : mSettings(settings) {
  if (!settings.cuePoint.empty()) {
    Util::TimeCode tc = {};
    Util::ConvertStringToTimeCode(settings.cuePoint.c_str(), &tc);
    mCueBCD = Util::ConvertTimeCodeToFrameCountBCD(&tc);
    mHasCue = true;
  }
}

VeldranResult SimulatedDeviceControl::DeckCommand(const char* operation) {
  if (VeldranResult rc = mSettings.Injected(operation)) return rc;
  return mSettings.deckAttached ? kVeldranOK : kVeldranNotFound;
}

VeldranResult SimulatedDeviceControl::GetDeckStatus(uint32_t* status) {
  if (VeldranResult rc = mSettings.Injected("GetDeckStatus")) return rc;
  if (!status) return kVeldranInvalidArg;
  *status = mSettings.deckAttached ? 1 : 0;
  return kVeldranOK;
}

VeldranResult SimulatedDeviceControl::SetCuePoint(uint32_t timecodeBCD) {
  if (VeldranResult rc = DeckCommand("SetCuePoint")) return rc;
  std::lock_guard<std::mutex> guard(mLock);
  mCueBCD = timecodeBCD;
  mHasCue = true;
  return kVeldranOK;
}

VeldranResult SimulatedDeviceControl::GetCuePoint(uint32_t* timecodeBCD) {
  if (VeldranResult rc = DeckCommand("GetCuePoint")) return rc;
  if (!timecodeBCD) return kVeldranInvalidArg;
  std::lock_guard<std::mutex> guard(mLock);
  *timecodeBCD = mCueBCD;
  return mHasCue ? kVeldranOK : kVeldranFalse;
}

VeldranResult SimulatedDeviceControl::SetCaptureGeometry(uint32_t width, uint32_t height, uint32_t timeScale,
                                                         uint32_t frameDuration) {
  if (VeldranResult rc = mSettings.Injected("SetCaptureGeometry")) return rc;
  std::lock_guard<std::mutex> guard(mLock);
  mGeometry[0] = width, mGeometry[1] = height, mGeometry[2] = timeScale, mGeometry[3] = frameDuration;
  return kVeldranOK;
}

VeldranResult SimulatedDeviceControl::Play() { return DeckCommand("Play"); }
VeldranResult SimulatedDeviceControl::Stop() { return DeckCommand("Stop"); }
VeldranResult SimulatedDeviceControl::Rewind() { return DeckCommand("Rewind"); }
VeldranResult SimulatedDeviceControl::FastForward() { return DeckCommand("FastForward"); }

VeldranResult SimulatedDeviceControl::GetReadiness() {
  if (VeldranResult rc = mSettings.Injected("GetReadiness")) return rc;
  return mSettings.deckAttached ? kVeldranOK : kVeldranFalse;
}

VeldranResult SimulatedDeviceControl::CheckStart(IVeldranVideoInputFrame* frame) {
  if (VeldranResult rc = mSettings.Injected("CheckStart")) return rc;
  if (!frame) return kVeldranInvalidArg;
  if (!mSettings.deckAttached) return kVeldranFalse;
  uint32_t cue;
  {
    std::lock_guard<std::mutex> guard(mLock);
    if (!mHasCue) return kVeldranOK;
    cue = mCueBCD;
  }
  // The deck knows where its tape is, whatever timecode the signal carries. A frame of
  // another card's making can only tell through its own timecode.
  uint32_t bcd;
  if (const SimulatedVideoFrame* simulated = dynamic_cast<const SimulatedVideoFrame*>(frame)) {
    bcd = simulated->DeckTimecode().ToBCD();
  } else {
    IVeldranTimecode* timecode = nullptr;
    if (frame->GetTimecode(ktnTimecodeRP188, &timecode) != kVeldranOK &&
        frame->GetTimecode(ktnTimecodeVITC, &timecode) != kVeldranOK) {
      return kVeldranFalse;
    }
    bcd = timecode->GetBCD();
    timecode->Release();
  }
  return BCDOrder(bcd) >= BCDOrder(cue) ? kVeldranOK : kVeldranFalse;
}

VeldranResult SimulatedDeviceControl::GetSupportedInputDisplayModes(VeldranDeviceModeRecord* records,
                                                                    uint32_t bufferBytes, uint32_t* count) {
  if (VeldranResult rc = mSettings.Injected("GetSupportedInputDisplayModes")) return rc;
  if (!records || !count) return kVeldranInvalidArg;
  uint32_t room = bufferBytes / sizeof(VeldranDeviceModeRecord);
  uint32_t stored = 0;
  for (size_t i = 0; i < kSimulatedModeCount && stored < room; ++i) {
    const SimulatedMode& mode = kSimulatedModes[i];
    VeldranDeviceModeRecord& record = records[stored++];
    record.width = static_cast<uint32_t>(mode.width);
    record.height = static_cast<uint32_t>(mode.height);
    // Frames per second in 16.16, rounded to nearest.
    record.frameRate = static_cast<uint32_t>((static_cast<uint64_t>(mode.timeScale) * 65536 + mode.frameDuration / 2) /
                                             static_cast<uint64_t>(mode.frameDuration));
    record.reserved = mode.code;
  }
  *count = stored;
  return kVeldranOK;
}

VeldranResult SimulatedDeviceControl::GetHardwareDescription(VeldranHardwareDescription* description) {
  if (VeldranResult rc = mSettings.Injected("GetHardwareDescription")) return rc;
  if (!description) return kVeldranInvalidArg;
  memset(description, 0, sizeof *description);
  description->size = sizeof *description;
  description->flags = mSettings.hardwareFlags;
  strncpy(description->model, "Kestrin Veldran (simulated)", sizeof description->model - 1);
  return kVeldranOK;
}

}  // namespace Sim
}  // namespace KTN
