// The simulated card's display modes.
#include "Simulator/SimulatedModes.h"

#include "DeviceAPI/VeldranAPI.h"

namespace KTN {
namespace Sim {

using Util::tcf2398;
using Util::tcf24;
using Util::tcf25;
using Util::tcf2997Drop;
using Util::tcf30;
using Util::tcf50;
using Util::tcf5994Drop;
using Util::tcf60;

const SimulatedMode kSimulatedModes[] = {
    // code                        name                    width height duration scale  field dominance     timecode      HD
    {ktnModeNTSC,                "NTSC",                   720,  486, 1001, 30000, ktnLowerFieldFirst, tcf2997Drop, false},
    {ktnModeNTSC2398,            "NTSC 23.98",             720,  486, 1001, 24000, ktnProgressiveFrame, tcf2398,    false},
    {ktnModePAL,                 "PAL",                    720,  576, 1000, 25000, ktnUpperFieldFirst, tcf25,       false},
    {ktnModeHD1080p2398,         "HD 1080p 23.98",        1920, 1080, 1001, 24000, ktnProgressiveFrame, tcf2398,    true},
    {ktnModeHD1080p24,           "HD 1080p 24",           1920, 1080, 1000, 24000, ktnProgressiveFrame, tcf24,      true},
    {ktnModeHD1080p25,           "HD 1080p 25",           1920, 1080, 1000, 25000, ktnProgressiveFrame, tcf25,      true},
    {ktnModeHD1080p2997,         "HD 1080p 29.97",        1920, 1080, 1001, 30000, ktnProgressiveFrame, tcf2997Drop, true},
    {ktnModeHD1080p30,           "HD 1080p 30",           1920, 1080, 1000, 30000, ktnProgressiveFrame, tcf30,      true},
    {ktnModeHD1080p50,           "HD 1080p 50",           1920, 1080, 1000, 50000, ktnProgressiveFrame, tcf50,      true},
    {ktnModeHD1080p2398Pulldown, "HD 1080p 23.98 pulldown", 1920, 1080, 1001, 24000, ktnProgressiveFrame, tcf2398,  true},
    {ktnMode3DHD1080p2398,       "3D HD 1080p 23.98",     1920, 1080, 1001, 24000, ktnProgressiveFrame, tcf2398,    true},
    {ktnMode3DHD1080p24,         "3D HD 1080p 24",        1920, 1080, 1000, 24000, ktnProgressiveFrame, tcf24,      true},
    {ktnModeHD1080p5994,         "HD 1080p 59.94",        1920, 1080, 1001, 60000, ktnProgressiveFrame, tcf5994Drop, true},
    {ktnModeHD1080p6000,         "HD 1080p 60",           1920, 1080, 1000, 60000, ktnProgressiveFrame, tcf60,      true},
    {ktnModeHD1080i50,           "HD 1080i 50",           1920, 1080, 1000, 25000, ktnUpperFieldFirst, tcf25,       true},
    {ktnModeHD1080i5994,         "HD 1080i 59.94",        1920, 1080, 1001, 30000, ktnUpperFieldFirst, tcf2997Drop, true},
    {ktnModeHD1080i6000,         "HD 1080i 60",           1920, 1080, 1000, 30000, ktnUpperFieldFirst, tcf30,       true},
    {ktnModeHD720p50,            "HD 720p 50",            1280,  720, 1000, 50000, ktnProgressiveFrame, tcf50,      true},
    {ktnModeHD720p5994,          "HD 720p 59.94",         1280,  720, 1001, 60000, ktnProgressiveFrame, tcf5994Drop, true},
    {ktnModeHD720p60,            "HD 720p 60",            1280,  720, 1000, 60000, ktnProgressiveFrame, tcf60,      true},
    {ktnMode2k2398,              "2K 1556p 23.98",        2048, 1556, 1001, 24000, ktnProgressiveFrame, tcf2398,    true},
    {ktnMode2k24,                "2K 1556p 24",           2048, 1556, 1000, 24000, ktnProgressiveFrame, tcf24,      true},
    {ktnMode2k25,                "2K 1556p 25",           2048, 1556, 1000, 25000, ktnProgressiveFrame, tcf25,      true},
    {ktnMode2kDCI2398,           "2K DCI 1080p 23.98",    2048, 1080, 1001, 24000, ktnProgressiveFrame, tcf2398,    true},
    {ktnMode2kDCI24,             "2K DCI 1080p 24",       2048, 1080, 1000, 24000, ktnProgressiveFrame, tcf24,      true},
};

const size_t kSimulatedModeCount = sizeof kSimulatedModes / sizeof kSimulatedModes[0];

const SimulatedMode* FindSimulatedMode(uint32_t code) {
  for (const SimulatedMode& mode : kSimulatedModes) {
    if (mode.code == code) return &mode;
  }
  return nullptr;
}

}  // namespace Sim
}  // namespace KTN
