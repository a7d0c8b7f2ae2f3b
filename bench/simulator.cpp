// Benchmark of the simulated card's frame generation against the frame period it must keep.
#include <stdio.h>
#include <stdlib.h>

#include <chrono>
#include <vector>

#include "DeviceAPI/VeldranAPI.h"
#include "Simulator/SimulatedModes.h"
#include "Simulator/TestSignal.h"

namespace {

struct Case {
  const char* name;
  uint32_t mode;
  uint32_t format;
};

const Case kCases[] = {
    {"1080p60 2vuy", ktnModeHD1080p6000, ktnFormat8BitYUV},
    {"1080p60 v210", ktnModeHD1080p6000, ktnFormat10BitYUV},
    {"2K 1556p24 r210", ktnMode2k24, ktnFormat10BitRGB},
};

}  // namespace

int main() {
  printf("simulator: time to generate one frame (picture and its sound) on one core, against the frame period\n");
  for (const Case& c : kCases) {
    const KTN::Sim::SimulatedMode& mode = *KTN::Sim::FindSimulatedMode(c.mode);
    KTN::Sim::TestSignal signal(mode, c.format);
    std::vector<uint8_t> frame(signal.FrameBytes());
    std::vector<uint8_t> sound(2000 * 16 * 4);
    const int frames = 300;
    auto start = std::chrono::steady_clock::now();
    int64_t samples = 0;
    for (int n = 0; n < frames; ++n) {
      signal.Render(n, frame.data());
      int count = static_cast<int>(KTN::Sim::TestTone::SamplesBefore(n + 1, mode) - KTN::Sim::TestTone::SamplesBefore(n, mode));
      KTN::Sim::TestTone::Render(samples, count, 16, 32, sound.data());
      samples += count;
    }
    double perFrame = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count() / frames;
    double period = 1000.0 * static_cast<double>(mode.frameDuration) / static_cast<double>(mode.timeScale);
    printf("  %-16s %6.2f ms a frame, period %6.2f ms: %5.1f%% of the period (%.0fx headroom)\n", c.name, perFrame, period,
           100 * perFrame / period, period / perFrame);
  }
  return 0;
}
