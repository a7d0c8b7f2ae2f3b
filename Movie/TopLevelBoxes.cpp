// The boxes at the top of a movie file.
#include "Movie/TopLevelBoxes.h"

#include "Movie/MovieFile.h"

#include <errno.h>

namespace KTN {

long TopLevelBoxes::ReadMovieBox(MovieFile& file, std::vector<uint8_t>& bytes, Box& whole, uint64_t* at) const {
  const Box* moov = nullptr;
  for (const Box& box : boxes) {
    if (box.type == BoxTypes::kMoov) moov = &box;
  }
  if (!moov) return EINVAL;
  if (long rc = file.Read(moov->offset, moov->size, bytes)) return rc;
  whole = Box();
  whole.size = bytes.size();
  whole.header = moov->header;
  whole.type = moov->type;
  if (at) *at = moov->offset;
  return 0;
}

long TopLevelBoxes::Read(MovieFile& file, uint64_t from) {
  boxes.clear();
  cut = false;
  const uint64_t size = file.Size();
  std::vector<uint8_t> header;
  for (uint64_t at = from; size >= 8 && at <= size - 8;) {
    if (long rc = file.Read(at, size - at >= 16 ? 16 : 8, header)) return rc;
    Box box;
    if (!BoxReader::Header(header.data(), header.size(), at, size - at, box)) {
      cut = true;
      break;
    }
    boxes.push_back(box);
    at += box.size;
  }
  return 0;
}

size_t TopLevelBoxes::Count(uint32_t type) const {
  size_t count = 0;
  for (const Box& box : boxes) count += box.type == type;
  return count;
}

}  // namespace KTN
