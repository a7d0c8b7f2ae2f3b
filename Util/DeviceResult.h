// The card's results as failure lines and the user's lines print them.
#pragma once

#include <stdint.h>

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
      {0x00000000u, "kVeldranOK"},          {0x00000001u, "kVeldranFalse"},
      {0x80000001u, "kVeldranNotImplemented"}, {0x80000002u, "kVeldranFail"},
      {0x80000003u, "kVeldranInvalidArg"},  {0x80000004u, "kVeldranOutOfMemory"},
      {0x80000005u, "kVeldranNoInterface"}, {0x80000006u, "kVeldranNotFound"},
      {0x80000007u, "kVeldranBusy"},
  };
  for (const Named& named : kNames) {
    if (named.value == static_cast<uint32_t>(result)) return named.name;
  }
  return nullptr;
}

}  // namespace Util
}  // namespace KTN
