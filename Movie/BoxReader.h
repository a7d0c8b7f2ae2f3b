// Reading a movie's boxes: where each lies, what it holds, and its big-endian fields.
#pragma once

#include <stdint.h>

#include <vector>

namespace KTN {

// A four-character box type, its first character in the most significant byte.
constexpr uint32_t BoxType(const char (&name)[5]) {
  return static_cast<uint32_t>(static_cast<uint8_t>(name[0])) << 24 |
         static_cast<uint32_t>(static_cast<uint8_t>(name[1])) << 16 |
         static_cast<uint32_t>(static_cast<uint8_t>(name[2])) << 8 | static_cast<uint8_t>(name[3]);
}

// Bytes of a picture sample description before its own boxes (fiel, colr, pasp ...): the
// entry's header and its fixed fields.
constexpr uint64_t kVisualEntryFields = 8 + 78;

// A box: where it starts (in the file or in a parent's bytes), its whole size and header.
struct Box {
  uint64_t offset = 0;
  uint64_t size = 0;
  uint32_t header = 8;
  uint32_t type = 0;
};

// Big-endian fields of a run of bytes (borrowed), bounds-checked: a read past the end
// reads 0 and clears ok.
class BoxReader {
 public:
  BoxReader(const uint8_t* data, uint64_t size) : mData(data), mSize(size) {}
  // The fields of box's contents (after its header) in bytes.
  BoxReader(const std::vector<uint8_t>& bytes, const Box& box)
      : mData(bytes.data() + box.offset + box.header), mSize(box.size - box.header) {}

  bool ok = true;
  uint64_t Position() const { return mPosition; }
  void Seek(uint64_t position);
  uint32_t U8() { return static_cast<uint32_t>(Take(1)); }
  uint32_t U16() { return static_cast<uint32_t>(Take(2)); }
  uint32_t U32() { return static_cast<uint32_t>(Take(4)); }
  uint64_t U64() { return Take(8); }

  // The boxes that fill bytes [begin, end) of data; false if one runs past end.
  static bool ChildBoxes(const uint8_t* data, uint64_t begin, uint64_t end, std::vector<Box>& boxes);
  // The boxes inside box, which lies in bytes.
  static bool Children(const std::vector<uint8_t>& bytes, const Box& box, std::vector<Box>& boxes);
  // The first box of type among boxes, or null.
  static const Box* Find(const std::vector<Box>& boxes, uint32_t type);
  // A header box (mvhd, tkhd, mdhd) starts with a version, flags and two dates, 32 bits
  // each in version 0 and 64 in version 1. Where its fields after them start, counted from
  // the start of box; wide receives whether the version is 1.
  static uint64_t AfterDates(const std::vector<uint8_t>& bytes, const Box& box, bool& wide);
  // The 32-bit field right after the dates (tkhd's track ID, mvhd's and mdhd's timescale),
  // or 0 when the box is too short to hold it.
  static uint32_t FirstFieldAfterDates(const std::vector<uint8_t>& bytes, const Box& box);

 private:
  uint64_t Take(int bytes);

  const uint8_t* mData;
  uint64_t mSize;
  uint64_t mPosition = 0;
};

}  // namespace KTN
