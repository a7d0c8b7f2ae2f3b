// Reading a movie's boxes.
#include "Movie/BoxReader.h"

namespace KTN {

void BoxReader::Seek(uint64_t position) {
  if (position > mSize) ok = false;
  mPosition = position > mSize ? mSize : position;
}

uint64_t BoxReader::Take(int bytes) {
  if (static_cast<uint64_t>(bytes) > mSize - mPosition) {
    ok = false;
    mPosition = mSize;
    return 0;
  }
  uint64_t value = 0;
  for (int i = 0; i < bytes; ++i) value = (value << 8) | mData[mPosition++];
  return value;
}

bool BoxReader::Header(const uint8_t* data, uint64_t available, uint64_t at, uint64_t room, Box& box) {
  BoxReader reader(data, available);
  box = Box();
  box.offset = at;
  box.size = reader.U32();
  box.type = reader.U32();
  if (box.size == 1) {
    box.size = reader.U64();
    box.header = 16;
  } else if (box.size == 0) {
    box.size = room;
  }
  return reader.ok && box.size >= box.header && box.size <= room;
}

bool BoxReader::ChildBoxes(const uint8_t* data, uint64_t begin, uint64_t end, std::vector<Box>& boxes) {
  boxes.clear();
  uint64_t at = begin;
  while (end >= 8 && at <= end - 8) {
    Box box;
    if (!Header(data + at, end - at, at, end - at, box)) return false;
    boxes.push_back(box);
    at += box.size;
  }
  return at == end;
}

bool BoxReader::Children(const std::vector<uint8_t>& bytes, const Box& box, std::vector<Box>& boxes) {
  return ChildBoxes(bytes.data(), box.offset + box.header, box.offset + box.size, boxes);
}

const Box* BoxReader::Find(const std::vector<Box>& boxes, uint32_t type) {
  for (const Box& box : boxes) {
    if (box.type == type) return &box;
  }
  return nullptr;
}

bool BoxReader::ReadHeaderFields(const std::vector<uint8_t>& bytes, const Box& box, HeaderFields& fields) {
  BoxReader reader(bytes, box);
  fields = HeaderFields();
  fields.wide = FullBoxVersion(reader.U32()) == 1;
  reader.Seek(reader.Position() + (fields.wide ? 16 : 8));  // creation and modification dates
  fields.first = reader.U32();
  if (box.type == BoxTypes::kTkhd) reader.U32();  // reserved, after the track ID
  fields.durationAt = box.header + reader.Position();
  fields.duration = fields.wide ? reader.U64() : reader.U32();
  return reader.ok;
}

}  // namespace KTN
