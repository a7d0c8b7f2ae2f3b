// Writing boxes.
#include "Movie/BoxWriter.h"

namespace KTN {

void BoxWriter::Put16(uint16_t value) {
  bytes.push_back(static_cast<uint8_t>(value >> 8));
  bytes.push_back(static_cast<uint8_t>(value));
}

void BoxWriter::Put32(uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<uint8_t>(value >> shift));
}

void BoxWriter::Put64(uint64_t value) {
  Put32(static_cast<uint32_t>(value >> 32));
  Put32(static_cast<uint32_t>(value));
}

size_t BoxWriter::Begin(uint32_t type) {
  size_t start = bytes.size();
  Put32(0);
  Put32(type);
  return start;
}

void BoxWriter::Patch32(size_t at, uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes[at + static_cast<size_t>(i)] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

bool BoxWriter::End(size_t start) {
  uint64_t size = bytes.size() - start;
  if (size > UINT32_MAX) return false;
  Patch32(start, static_cast<uint32_t>(size));
  return true;
}

bool BoxWriter::PatchDuration(size_t at, bool wide, uint64_t duration) {
  if (!wide && duration > UINT32_MAX) return false;
  for (int i = 0, width = wide ? 8 : 4; i < width; ++i) {
    bytes[at + static_cast<size_t>(i)] = static_cast<uint8_t>(duration >> (8 * (width - 1 - i)));
  }
  return true;
}

}  // namespace KTN
