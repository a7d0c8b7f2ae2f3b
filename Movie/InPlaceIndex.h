// Gives a movie recorded as fragments one ordinary index, leaving its samples where they lie.
#pragma once

#include <stdint.h>

#include <string>

namespace KTN {

// A take is written as [ftyp][moov without samples]([moof][mdat])...; Write appends one
// moov that indexes every sample of the complete fragments where it already is, then turns
// every moof and the first moov into 'free' boxes, which readers skip. No sample is copied,
// so finishing costs the size of the index, not of the take, and needs no room beside it.
// Until the last fragment header is hidden, readers still find the fragments through the
// first moov; from then until that moov is hidden too (two synced writes) they find no
// sample. A cut anywhere is completed by calling Write again (the index at the end is
// found and the hiding finished), which repair does.
class InPlaceIndex {
 public:
  // Returns 0, or errno with one failure line; 61 (ENODATA) when no complete fragment
  // holds a sample; 95 (EOPNOTSUPP) with one line saying why for a layout it does not index
  // (a box among the fragments, a track it cannot read, a fragment FragmentSamples cannot
  // describe), which it leaves untouched (the caller may then copy the samples instead).
  static long Write(const std::string& path);
};

}  // namespace KTN
