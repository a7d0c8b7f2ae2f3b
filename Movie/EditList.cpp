// A track's edit list.
#include "Movie/EditList.h"

#include "Movie/BoxFlags.h"

namespace KTN {

bool EditList::Write(BoxWriter& out, uint64_t duration) {
  const bool wide = duration > UINT32_MAX;
  size_t edts = out.Begin(BoxTypes::kEdts);
  size_t elst = out.Begin(BoxTypes::kElst);
  out.Put32(FullBoxWord(wide ? 1 : 0, 0));
  out.Put32(1);  // one edit
  if (wide) {
    out.Put64(duration);
    out.Put64(0);  // from the media's start
  } else {
    out.Put32(static_cast<uint32_t>(duration));
    out.Put32(0);
  }
  out.Put32(kFixedOne);  // rate 1.0
  return out.End(elst) && out.End(edts);
}

}  // namespace KTN
