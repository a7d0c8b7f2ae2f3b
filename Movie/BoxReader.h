// Reading a movie's boxes: where each lies, what it holds, and its big-endian fields.
#pragma once

#include <stdint.h>

#include <vector>

#include "Movie/BoxFlags.h"

namespace KTN {

// A box: where it starts (in the file or in a parent's bytes), its whole size and header.
struct Box {
  uint64_t offset = 0;
  uint64_t size = 0;
  uint32_t header = 8;
  uint32_t type = 0;
};

// What a movie, track or media header (mvhd, tkhd, mdhd) says, in version 0 (32-bit dates
// and duration) or 1 (64-bit).
struct HeaderFields {
  bool wide = false;        // version 1
  uint32_t first = 0;       // the field after the dates: mvhd's and mdhd's timescale, tkhd's track ID
  uint64_t duration = 0;    // in the movie's (mvhd, tkhd) or the media's (mdhd) timescale
  uint64_t durationAt = 0;  // where the duration lies, from the start of the box
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
  uint64_t Left() const { return mSize - mPosition; }
  void Seek(uint64_t position);
  uint32_t U8() { return static_cast<uint32_t>(Take(1)); }
  uint32_t U16() { return static_cast<uint32_t>(Take(2)); }
  uint32_t U32() { return static_cast<uint32_t>(Take(4)); }
  uint64_t U64() { return Take(8); }

  // The header of the box that starts at data (available bytes of it there, 8 at least for
  // a header; 16 for one with a 64-bit size) and may reach room bytes: its size (a size of
  // 0 reaches to room), type and header length, with its offset set to at. False when the
  // header is not all there or its size is less than the header or more than room.
  static bool Header(const uint8_t* data, uint64_t available, uint64_t at, uint64_t room, Box& box);
  // The boxes that fill bytes [begin, end) of data; false if one runs past end (boxes then
  // holds those before it).
  static bool ChildBoxes(const uint8_t* data, uint64_t begin, uint64_t end, std::vector<Box>& boxes);
  // The boxes inside box, which lies in bytes.
  static bool Children(const std::vector<uint8_t>& bytes, const Box& box, std::vector<Box>& boxes);
  // The first box of type among boxes, or null.
  static const Box* Find(const std::vector<Box>& boxes, uint32_t type);
  // The fields of a movie, track or media header box (box.type says which) that lies in
  // bytes; false when the box is too short to hold them.
  static bool ReadHeaderFields(const std::vector<uint8_t>& bytes, const Box& box, HeaderFields& fields);

 private:
  uint64_t Take(int bytes);

  const uint8_t* mData;
  uint64_t mSize;
  uint64_t mPosition = 0;
};

}  // namespace KTN
