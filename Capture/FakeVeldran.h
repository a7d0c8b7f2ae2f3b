// Test double: a configurable card behind the device API, for the cases the simulated card does not show.
#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "DeviceAPI/VeldranAPI.h"

namespace KTN {

// What the fake card does, and what was asked of it. Install() makes the process's device
// API factories hand out this card.
struct FakeVeldran {
  int devices = 1;
  int modes = 10;
  // Support per (mode, format); absent pairs are native for '2vuy' and none otherwise.
  std::map<std::pair<uint32_t, uint32_t>, uint32_t> support;
  // Results of the input's operations by name ("StartStreams", "EnableVideoInput", ...);
  // absent names succeed. "EnableVideoInputDetect" answers calls with format detection.
  std::map<std::string, VeldranResult> results;

  std::vector<std::string> calls;          // the input's operations, in order
  std::vector<uint32_t> enableVideoFlags;  // flags of each EnableVideoInput
  IVeldranInputCallback* callback = nullptr;
  int inputReferences = 0;                 // references held on the input by others
  int liveModes = 0;                       // display modes handed out and not yet destroyed

  // Delivers a frame to the registered callback, as the capture thread would.
  void DeliverFrame(IVeldranVideoInputFrame* video, IVeldranAudioInputPacket* audio);

  static FakeVeldran& Installed();
  void Install();
  VeldranResult ResultOf(const std::string& operation) const;
};

}  // namespace KTN
