// Writing boxes: big-endian fields into a growing run of bytes, sizes filled in when a box ends.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

namespace KTN {

class BoxWriter {
 public:
  std::vector<uint8_t> bytes;

  void Put8(uint8_t value) { bytes.push_back(value); }
  void Put16(uint16_t value);
  void Put32(uint32_t value);
  void Put64(uint64_t value);
  void Put(const uint8_t* data, uint64_t size) { bytes.insert(bytes.end(), data, data + size); }
  // Starts a box of type; returns where it starts, for End.
  size_t Begin(uint32_t type);
  // Overwrites 32 bits written earlier (a size or a count known only afterwards).
  void Patch32(size_t at, uint32_t value);
  // Sets the size of the box started at start; false when it outgrew a 32-bit size.
  bool End(size_t start);
  // Overwrites a duration field of a copied header box (32 or 64 bits wide).
  bool PatchDuration(size_t at, bool wide, uint64_t duration);
};

}  // namespace KTN
