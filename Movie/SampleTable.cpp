// Reads a finished track's sample table from its moov, bounds-checked.
#include "Movie/SampleTable.h"

namespace KTN {

namespace {

// The bytes of one full box's entries: its reader placed at the first entry, and the
// count it states, which must fit in the bytes left (entryBytes each).
bool Entries(const std::vector<uint8_t>& moov, const Box& box, uint64_t before, uint64_t entryBytes, BoxReader& reader,
             uint32_t& count) {
  reader = BoxReader(moov, box);
  reader.Seek(before);
  count = reader.U32();
  return reader.ok && count <= reader.Left() / entryBytes;
}

bool ReadRuns(const std::vector<uint8_t>& moov, const Box& box, std::vector<uint32_t>& counts,
              std::vector<uint32_t>& values) {
  BoxReader reader(nullptr, 0);
  uint32_t entries = 0;
  if (!Entries(moov, box, 4, 8, reader, entries)) return false;
  counts.resize(entries);
  values.resize(entries);
  for (uint32_t i = 0; i < entries; ++i) {
    counts[i] = reader.U32();
    values[i] = reader.U32();
  }
  return reader.ok;
}

}  // namespace

bool SampleTable::Read(const std::vector<uint8_t>& moov, const TrackDescription& track) {
  *this = SampleTable();
  std::vector<Box> tables;
  if (!track.stbl.size || track.stbl.offset + track.stbl.size > moov.size() ||
      !BoxReader::Children(moov, track.stbl, tables)) {
    return false;
  }
  const Box* stts = BoxReader::Find(tables, BoxTypes::kStts);
  const Box* stsc = BoxReader::Find(tables, BoxTypes::kStsc);
  const Box* stsz = BoxReader::Find(tables, BoxTypes::kStsz);
  const Box* stco = BoxReader::Find(tables, BoxTypes::kStco);
  const Box* co64 = BoxReader::Find(tables, BoxTypes::kCo64);
  const Box* ctts = BoxReader::Find(tables, BoxType("ctts"));
  if (!stts || !stsc || !stsz || (!stco && !co64)) return false;

  // Sizes: one for all, or one each.
  BoxReader sizes(moov, *stsz);
  sizes.Seek(4);
  mCommonSize = sizes.U32();
  uint32_t count = sizes.U32();
  if (!sizes.ok) return false;
  samples = count;
  if (!mCommonSize) {
    if (count > sizes.Left() / 4) return false;
    mSizes.resize(count);
    for (uint32_t& size : mSizes) size = sizes.U32();
  }

  // Times: runs of samples of one duration, which must count every sample.
  std::vector<uint32_t> counts, values;
  if (!ReadRuns(moov, *stts, counts, values)) return false;
  uint64_t timed = 0;
  for (size_t i = 0; i < counts.size(); ++i) {
    if (!counts[i]) continue;
    const uint64_t length = static_cast<uint64_t>(counts[i]) * values[i];
    if (mDuration > UINT64_MAX - length) return false;
    mDuration += length;
    timed += counts[i];
    mTimes.push_back({counts[i], values[i]});
  }
  if (timed != samples) return false;

  if (ctts) {
    if (!ReadRuns(moov, *ctts, counts, values)) return false;
    uint64_t offsetSamples = 0;
    for (size_t i = 0; i < counts.size(); ++i) {
      offsetSamples += counts[i];
      if (counts[i]) mOffsets.push_back({counts[i], values[i]});
    }
    if (offsetSamples != samples) return false;
  }

  // Chunks: their places, then how many samples each holds.
  BoxReader places(nullptr, 0);
  uint32_t chunkCount = 0;
  const bool wide = co64 != nullptr;
  if (!Entries(moov, wide ? *co64 : *stco, 4, wide ? 8 : 4, places, chunkCount)) return false;
  chunks.resize(chunkCount);
  for (Chunk& chunk : chunks) chunk.offset = wide ? places.U64() : places.U32();

  BoxReader runs(nullptr, 0);
  uint32_t runCount = 0;
  if (!Entries(moov, *stsc, 4, 12, runs, runCount)) return false;
  if (chunkCount && !runCount) return false;
  uint64_t placed = 0;
  uint32_t previous = 0;
  for (uint32_t r = 0; r < runCount; ++r) {
    const uint32_t first = runs.U32();
    const uint32_t perChunk = runs.U32();
    const uint32_t description = runs.U32();
    // Chunks are counted from 1; the first run starts at the first chunk, each run after the one before.
    if (!runs.ok || first == 0 || first > chunkCount || (r == 0 && first != 1) || (r > 0 && first <= previous)) {
      return false;
    }
    previous = first;
    // This run's chunks, up to where the next run starts (read ahead) or the last chunk.
    uint64_t end = chunkCount;
    if (r + 1 < runCount) {
      BoxReader next = runs;
      end = next.U32() - 1;
      if (end > chunkCount) end = chunkCount;
    }
    for (uint64_t c = first - 1; c < end; ++c) {
      chunks[c].firstSample = placed;
      chunks[c].samples = perChunk;
      chunks[c].description = description;
      placed += perChunk;
    }
  }
  return runs.ok && placed == samples;
}

void SampleTable::Walk(const std::function<bool(const TableSample&)>& visit) const {
  TableSample sample;
  size_t time = 0, offset = 0;
  uint32_t timeLeft = mTimes.empty() ? 0 : mTimes[0].count;
  uint32_t offsetLeft = mOffsets.empty() ? 0 : mOffsets[0].count;
  for (size_t c = 0; c < chunks.size(); ++c) {
    sample.chunk = c;
    sample.offset = chunks[c].offset;
    for (uint32_t i = 0; i < chunks[c].samples; ++i) {
      // Read guarantees that the runs count every sample.
      while (timeLeft == 0) timeLeft = mTimes[++time].count;
      sample.duration = mTimes[time].value;
      --timeLeft;
      if (!mOffsets.empty()) {
        while (offsetLeft == 0) offsetLeft = mOffsets[++offset].count;
        sample.compositionOffset = static_cast<int32_t>(mOffsets[offset].value);
        --offsetLeft;
      }
      sample.size = Size(sample.index);
      if (!visit(sample)) return;
      sample.offset += sample.size;
      sample.decodeTime += sample.duration;
      ++sample.index;
    }
  }
}

}  // namespace KTN
