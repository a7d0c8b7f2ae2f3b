// The sample table of a finished track, read from its moov: where each chunk lies and which samples it holds; each sample's size, decode time and duration.
#pragma once

#include <stdint.h>

#include <functional>
#include <vector>

#include "Movie/MovieTracks.h"

namespace KTN {

// One sample of a track, as its table places and times it.
struct TableSample {
  uint64_t index = 0;          // from 0, in decode order
  uint64_t chunk = 0;          // from 0
  uint64_t offset = 0;         // where its bytes start in the file
  uint32_t size = 0;           // bytes
  uint64_t decodeTime = 0;     // in the track's timescale
  uint32_t duration = 0;       // in the track's timescale
  int32_t compositionOffset = 0;  // presentation time minus decode time (ctts); 0 without one
};

// Read from the stts, stsc, stsz, stco or co64 and, where there is one, ctts of a track. Every
// table is read through BoxReader, and what is kept grows only with the bytes of its box
// (a table's entries count for no more than its box holds), so a hostile file costs at most
// its moov's size in memory. A sample count can still be large (a common size for every
// sample is one field): Walk visits them without keeping them. A value; not thread-safe.
class SampleTable {
 public:
  struct Chunk {
    uint64_t offset = 0;       // in the file
    uint64_t firstSample = 0;  // index of its first sample
    uint32_t samples = 0;
    uint32_t description = 0;  // sample description index, from 1
  };
  std::vector<Chunk> chunks;  // in table order
  uint64_t samples = 0;       // the track's samples

  // Reads the tables of track, whose boxes lie in moov: false when one is missing, cut short,
  // or the tables disagree (their sample counts differ, a chunk run out of order).
  bool Read(const std::vector<uint8_t>& moov, const TrackDescription& track);

  // The size of every sample when they all have one (sound of whole frames: a frame's
  // bytes), else 0.
  uint32_t CommonSize() const { return mCommonSize; }
  uint32_t Size(uint64_t sample) const { return mCommonSize ? mCommonSize : mSizes[sample]; }
  // The end of the last sample, in the track's timescale.
  uint64_t Duration() const { return mDuration; }

  // Visits the samples in decode order, chunk by chunk, until visit returns false.
  void Walk(const std::function<bool(const TableSample&)>& visit) const;

 private:
  struct Run {
    uint32_t count;
    uint32_t value;
  };
  std::vector<Run> mTimes;    // stts: samples, duration each
  std::vector<Run> mOffsets;  // ctts: samples, composition offset each
  std::vector<uint32_t> mSizes;
  uint32_t mCommonSize = 0;
  uint64_t mDuration = 0;
};

}  // namespace KTN
