// How the simulated card behaves, read from VELDRAN_SIM_* environment variables when it loads.
#pragma once

#include <stdint.h>

#include <map>
#include <string>

#include "DeviceAPI/VeldranAPI.h"
#include "Simulator/ScriptedFaults.h"

namespace KTN {
namespace Sim {

enum class TimecodeSource { kRP188, kVITC, kNone };

struct SimulatorSettings {
  int devices = 1;                      // VELDRAN_SIM_DEVICES: cards found (0: none)
  uint32_t hardwareFlags = ktnHardwareFlag10BitRGBCapture;  // VELDRAN_SIM_HARDWARE_FLAGS
  TimecodeSource timecode = TimecodeSource::kRP188;         // VELDRAN_SIM_TIMECODE: rp188, vitc, none
  std::string timecodeStart = "01:00:00:00";                // VELDRAN_SIM_TIMECODE_START
  bool deckAttached = false;            // VELDRAN_SIM_DECK: 1 attaches a deck
  std::string cuePoint;                 // VELDRAN_SIM_CUE: start check's cue timecode (empty: first frame)
  double speed = 1.0;                   // VELDRAN_SIM_SPEED: N times real time; 0 as fast as possible
  bool formatDetection = true;          // VELDRAN_SIM_FORMAT_DETECTION: 0 refuses the detection flag
  int64_t framesPerStream = 0;          // VELDRAN_SIM_FRAMES: the signal ends after N frames delivered (0: never)
  std::string sourceMovie;              // VELDRAN_SIM_SOURCE: a movie played in a loop instead of bars
  // VELDRAN_SIM_FAIL: "Operation[=code],..." makes the named operations answer the code
  // (kVeldranFail when none is given).
  std::map<std::string, VeldranResult> failures;
  // VELDRAN_SIM_EVENTS: "KIND@FIRST+COUNT,..." faults played over the frames of each stream.
  ScriptedFaults faults;

  // The failure injected for an operation, or 0.
  VeldranResult Injected(const char* operation) const;
};

// Parses the environment; a bad value is reported in one line and its default kept.
SimulatorSettings ReadSimulatorSettings();

// The process's settings: read when the library loads, read again by ReloadSettings.
const SimulatorSettings& Settings();
void ReloadSettings();

}  // namespace Sim
}  // namespace KTN
