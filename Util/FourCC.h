// Four-character codes: 32-bit values whose bytes, most significant first, spell the code.
#pragma once

#include <stdint.h>

namespace KTN {
namespace Util {

// FourCC("2vuy") == 0x32767579. Usable in constant expressions and tables.
constexpr uint32_t FourCC(const char (&code)[5]) {
  return (static_cast<uint32_t>(static_cast<uint8_t>(code[0])) << 24) |
         (static_cast<uint32_t>(static_cast<uint8_t>(code[1])) << 16) |
         (static_cast<uint32_t>(static_cast<uint8_t>(code[2])) << 8) |
         static_cast<uint32_t>(static_cast<uint8_t>(code[3]));
}

}  // namespace Util
}  // namespace KTN
