// The card's results as failure lines and the user's lines print them.
#pragma once

#include <stdint.h>

#include "DeviceAPI/VeldranAPI.h"

namespace KTN {
namespace Util {

// A result of the card's device API in hexadecimal as the device API writes it: its 32 bits
// (0x80000002), not the sign-extended long (0xffffffff80000002). For "%ld (0x%lx)".
inline unsigned long DeviceHex(long result) {
  return static_cast<uint32_t>(result);
}

// The device API's name of a result ("kVeldranFail"), or null for one it does not name.
inline const char* DeviceResultName(long result) {
  struct Named {
    uint32_t value;
    const char* name;
  };
  static const Named kNames[] = {
      {kVeldranOK, "kVeldranOK"},
      {kVeldranFalse, "kVeldranFalse"},
      {static_cast<uint32_t>(kVeldranNotImplemented), "kVeldranNotImplemented"},
      {static_cast<uint32_t>(kVeldranFail), "kVeldranFail"},
      {static_cast<uint32_t>(kVeldranInvalidArg), "kVeldranInvalidArg"},
      {static_cast<uint32_t>(kVeldranOutOfMemory), "kVeldranOutOfMemory"},
      {static_cast<uint32_t>(kVeldranNoInterface), "kVeldranNoInterface"},
      {static_cast<uint32_t>(kVeldranNotFound), "kVeldranNotFound"},
      {static_cast<uint32_t>(kVeldranBusy), "kVeldranBusy"},
  };
  for (const Named& named : kNames) {
    if (named.value == static_cast<uint32_t>(result)) return named.name;
  }
  return nullptr;
}

}  // namespace Util
}  // namespace KTN
