// The simulated card's settings from the environment.
#include "Simulator/SimulatorSettings.h"

#include <stdlib.h>
#include <string.h>

#include <mutex>

#include "Util/Log.h"
#include "Util/TimecodeText.h"

namespace KTN {
namespace Sim {

namespace {

// Guards sSettings against a reload while the card's threads read it.
std::mutex sSettingsLock;
SimulatorSettings sSettings = ReadSimulatorSettings();

bool ParseLong(const char* name, const char* text, long minimum, long maximum, long& value) {
  char* end = nullptr;
  long parsed = strtol(text, &end, 0);
  if (!*text || *end || parsed < minimum || parsed > maximum) {
    KTN_LOG("%s=%s is not a whole number from %ld to %ld; using the default", name, text, minimum, maximum);
    return false;
  }
  value = parsed;
  return true;
}

}  // namespace

VeldranResult SimulatorSettings::Injected(const char* operation) const {
  auto found = failures.find(operation);
  return found != failures.end() ? found->second : kVeldranOK;
}

SimulatorSettings ReadSimulatorSettings() {
  SimulatorSettings settings;
  long value = 0;
  if (const char* text = getenv("VELDRAN_SIM_DEVICES")) {
    if (ParseLong("VELDRAN_SIM_DEVICES", text, 0, 8, value)) settings.devices = static_cast<int>(value);
  }
  if (const char* text = getenv("VELDRAN_SIM_HARDWARE_FLAGS")) {
    if (ParseLong("VELDRAN_SIM_HARDWARE_FLAGS", text, 0, 0x7fffffff, value)) settings.hardwareFlags = static_cast<uint32_t>(value);
  }
  if (const char* text = getenv("VELDRAN_SIM_TIMECODE")) {
    if (strcmp(text, "rp188") == 0) {
      settings.timecode = TimecodeSource::kRP188;
    } else if (strcmp(text, "vitc") == 0) {
      settings.timecode = TimecodeSource::kVITC;
    } else if (strcmp(text, "none") == 0) {
      settings.timecode = TimecodeSource::kNone;
    } else {
      KTN_LOG("VELDRAN_SIM_TIMECODE=%s is not rp188, vitc or none; using rp188", text);
    }
  }
  if (const char* text = getenv("VELDRAN_SIM_TIMECODE_START")) {
    if (Util::TimecodeText::IsTimecode(text)) {
      settings.timecodeStart = text;
    } else {
      KTN_LOG("VELDRAN_SIM_TIMECODE_START=%s is not HH:MM:SS:FF; using %s", text, settings.timecodeStart.c_str());
    }
  }
  if (const char* text = getenv("VELDRAN_SIM_DECK")) {
    if (ParseLong("VELDRAN_SIM_DECK", text, 0, 1, value)) settings.deckAttached = value != 0;
  }
  if (const char* text = getenv("VELDRAN_SIM_CUE")) {
    if (Util::TimecodeText::IsTimecode(text)) {
      settings.cuePoint = text;
    } else {
      KTN_LOG("VELDRAN_SIM_CUE=%s is not HH:MM:SS:FF; starting at the first frame", text);
    }
  }
  if (const char* text = getenv("VELDRAN_SIM_SPEED")) {
    char* end = nullptr;
    double speed = strtod(text, &end);
    if (!*text || *end || speed < 0 || speed > 1000) {
      KTN_LOG("VELDRAN_SIM_SPEED=%s is not a number from 0 to 1000; using 1", text);
    } else {
      settings.speed = speed;
    }
  }
  if (const char* text = getenv("VELDRAN_SIM_FORMAT_DETECTION")) {
    if (ParseLong("VELDRAN_SIM_FORMAT_DETECTION", text, 0, 1, value)) settings.formatDetection = value != 0;
  }
  if (const char* text = getenv("VELDRAN_SIM_FRAMES")) {
    if (ParseLong("VELDRAN_SIM_FRAMES", text, 0, 1000000000, value)) settings.framesPerStream = value;
  }
  if (const char* text = getenv("VELDRAN_SIM_SOURCE")) settings.sourceMovie = text;
  if (const char* text = getenv("VELDRAN_SIM_FAIL")) {
    std::string list = text;
    size_t start = 0;
    while (start <= list.size()) {
      size_t end = list.find(',', start);
      if (end == std::string::npos) end = list.size();
      std::string item = list.substr(start, end - start);
      if (!item.empty()) {
        size_t equals = item.find('=');
        VeldranResult code = kVeldranFail;
        if (equals != std::string::npos) {
          char* codeEnd = nullptr;
          unsigned long parsed = strtoul(item.c_str() + equals + 1, &codeEnd, 0);
          if (*codeEnd || parsed == 0 || parsed > 0xffffffffUL) {
            KTN_LOG("VELDRAN_SIM_FAIL: %s has no failure code; using 0x80000002", item.c_str());
          } else {
            code = static_cast<VeldranResult>(static_cast<uint32_t>(parsed));
          }
          item.resize(equals);
        }
        settings.failures[item] = code;
      }
      start = end + 1;
    }
  }
  if (const char* text = getenv("VELDRAN_SIM_EVENTS")) {
    std::string why;
    if (!ScriptedFaults::Parse(text, &settings.faults, &why)) {
      KTN_LOG("VELDRAN_SIM_EVENTS=%s: %s; playing no events", text, why.c_str());
    }
  }
  return settings;
}

const SimulatorSettings& Settings() {
  std::lock_guard<std::mutex> guard(sSettingsLock);
  return sSettings;
}

void ReloadSettings() {
  SimulatorSettings fresh = ReadSimulatorSettings();
  std::lock_guard<std::mutex> guard(sSettingsLock);
  sSettings = fresh;
}

}  // namespace Sim
}  // namespace KTN
