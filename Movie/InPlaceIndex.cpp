// Appends one ordinary index to a fragmented movie and hides its fragment headers.
#include "Movie/InPlaceIndex.h"

#include <errno.h>
#include <string.h>

#include <vector>

#include "Movie/BoxReader.h"
#include "Movie/BoxWriter.h"
#include "Movie/MovieFile.h"
#include "Util/Log.h"

namespace KTN {

namespace {

constexpr uint32_t kSampleIsNotSync = 0x00010000;  // in a fragment's sample flags

// One track of the take: what the fragments say about its samples.
struct Track {
  uint32_t id = 0;
  uint32_t timescale = 0;
  bool sound = false;
  Box trak;  // within the first moov's bytes
  // The fragments' defaults (from the first moov's trex).
  uint32_t defaultDescription = 1;
  uint32_t defaultDuration = 0;
  uint32_t defaultSize = 0;
  uint32_t defaultFlags = 0;
  std::vector<uint64_t> offsets;
  std::vector<uint32_t> sizes;
  std::vector<uint64_t> durations;
  std::vector<int64_t> times;  // decode times
  std::vector<bool> sync;
  struct Chunk {
    size_t first;  // sample index
    size_t count;
    uint32_t description;
  };
  std::vector<Chunk> chunks;
};

long Unsupported(const std::string& path, const char* why) {
  KTN_LOG("The movie %s cannot be indexed in place: %s", path.c_str(), why);
  return EOPNOTSUPP;
}

// Tracks of the first moov, with the fragments' defaults; false if it is not a take's.
bool ReadTracks(const std::vector<uint8_t>& moov, const Box& box, std::vector<Track>& tracks) {
  std::vector<Box> children, inner, media;
  if (!BoxReader::Children(moov, box, children)) return false;
  for (const Box& child : children) {
    if (child.type != BoxType("trak")) continue;
    Track track;
    track.trak = child;
    if (!BoxReader::Children(moov, child, inner)) return false;
    const Box* tkhd = BoxReader::Find(inner, BoxType("tkhd"));
    const Box* mdia = BoxReader::Find(inner, BoxType("mdia"));
    if (!tkhd || !mdia || !BoxReader::Children(moov, *mdia, media)) return false;
    track.id = BoxReader::FirstFieldAfterDates(moov, *tkhd);
    const Box* mdhd = BoxReader::Find(media, BoxType("mdhd"));
    const Box* hdlr = BoxReader::Find(media, BoxType("hdlr"));
    if (!mdhd || !hdlr) return false;
    track.timescale = BoxReader::FirstFieldAfterDates(moov, *mdhd);
    BoxReader handler(moov.data() + hdlr->offset + hdlr->header, hdlr->size - hdlr->header);
    handler.Seek(8);
    track.sound = handler.U32() == BoxType("soun");
    if (!handler.ok || track.id == 0 || track.timescale == 0) return false;
    tracks.push_back(track);
  }
  if (const Box* mvex = BoxReader::Find(children, BoxType("mvex"))) {
    if (!BoxReader::Children(moov, *mvex, inner)) return false;
    for (const Box& trex : inner) {
      if (trex.type != BoxType("trex")) continue;
      BoxReader defaults(moov.data() + trex.offset + trex.header, trex.size - trex.header);
      defaults.Seek(4);
      uint32_t id = defaults.U32();
      for (Track& track : tracks) {
        if (track.id != id) continue;
        track.defaultDescription = defaults.U32();
        track.defaultDuration = defaults.U32();
        track.defaultSize = defaults.U32();
        track.defaultFlags = defaults.U32();
      }
      if (!defaults.ok) return false;
    }
  }
  return !tracks.empty();
}

// Adds the samples of one fragment (moof at moofOffset, its mdat's data in [dataBegin,
// dataEnd)) to the tracks; false if the fragment is not one this index can describe.
bool ReadFragment(const std::vector<uint8_t>& moof, uint64_t moofOffset, uint64_t dataBegin, uint64_t dataEnd,
                  std::vector<Track>& tracks) {
  std::vector<Box> children, parts;
  Box whole;
  if (!BoxReader::ChildBoxes(moof.data(), 0, moof.size(), children) || children.size() != 1) return false;
  whole = children[0];
  if (!BoxReader::Children(moof, whole, children)) return false;
  for (const Box& traf : children) {
    if (traf.type != BoxType("traf")) continue;
    if (!BoxReader::Children(moof, traf, parts)) return false;
    const Box* tfhd = BoxReader::Find(parts, BoxType("tfhd"));
    if (!tfhd) return false;
    BoxReader header(moof.data() + tfhd->offset + tfhd->header, tfhd->size - tfhd->header);
    uint32_t flags = header.U32() & 0xFFFFFF;
    uint32_t id = header.U32();
    Track* track = nullptr;
    for (Track& candidate : tracks) {
      if (candidate.id == id) track = &candidate;
    }
    if (!track) return false;
    // Without an explicit base, and as our writer always says, data offsets count from the moof.
    uint64_t base = flags & 0x1 ? header.U64() : moofOffset;
    uint32_t description = flags & 0x2 ? header.U32() : track->defaultDescription;
    uint32_t defaultDuration = flags & 0x8 ? header.U32() : track->defaultDuration;
    uint32_t defaultSize = flags & 0x10 ? header.U32() : track->defaultSize;
    uint32_t defaultFlags = flags & 0x20 ? header.U32() : track->defaultFlags;
    if (!header.ok) return false;
    int64_t time = track->times.empty() ? 0 : track->times.back() + static_cast<int64_t>(track->durations.back());
    if (const Box* tfdt = BoxReader::Find(parts, BoxType("tfdt"))) {
      BoxReader decode(moof.data() + tfdt->offset + tfdt->header, tfdt->size - tfdt->header);
      bool wide = decode.U8() == 1;
      decode.Seek(4);
      time = static_cast<int64_t>(wide ? decode.U64() : decode.U32());
      if (!decode.ok) return false;
    }
    uint64_t next = base;  // where a run without its own data offset starts
    for (const Box& trun : parts) {
      if (trun.type != BoxType("trun")) continue;
      BoxReader run(moof.data() + trun.offset + trun.header, trun.size - trun.header);
      uint32_t runFlags = run.U32() & 0xFFFFFF;
      uint32_t count = run.U32();
      if (runFlags & 0x1) next = base + static_cast<uint64_t>(static_cast<int32_t>(run.U32()));
      uint32_t firstFlags = runFlags & 0x4 ? run.U32() : defaultFlags;
      if (count == 0) continue;
      track->chunks.push_back({track->offsets.size(), count, description});
      for (uint32_t i = 0; i < count; ++i) {
        uint32_t duration = runFlags & 0x100 ? run.U32() : defaultDuration;
        uint32_t size = runFlags & 0x200 ? run.U32() : defaultSize;
        uint32_t sampleFlags = runFlags & 0x400 ? run.U32() : (i == 0 ? firstFlags : defaultFlags);
        if (runFlags & 0x800 && run.U32() != 0) return false;  // reordered pictures: none of ours
        if (!run.ok || next < dataBegin || next + size > dataEnd) return false;
        track->offsets.push_back(next);
        track->sizes.push_back(size);
        track->durations.push_back(duration);
        track->times.push_back(time);
        track->sync.push_back(!(sampleFlags & kSampleIsNotSync));
        next += size;
        time += duration;
      }
    }
  }
  return true;
}

// Settles each sample's duration: a picture lasts until the next one starts (which keeps
// the time of frames a full backlog dropped); sound lasts as many sample frames as it holds.
// bytesPerFrame receives the sound's frame size when every sample is whole frames of it.
void SettleDurations(Track& track, uint64_t& bytesPerFrame) {
  bytesPerFrame = 0;
  const size_t count = track.sizes.size();
  if (track.sound) {
    for (size_t i = 0; i < count; ++i) {
      if (track.durations[i] == 0 || track.sizes[i] % track.durations[i]) return;
      uint64_t frame = track.sizes[i] / track.durations[i];
      if (bytesPerFrame && frame != bytesPerFrame) {
        bytesPerFrame = 0;
        return;
      }
      bytesPerFrame = frame;
    }
    return;
  }
  for (size_t i = 0; i + 1 < count; ++i) {
    if (track.times[i + 1] > track.times[i]) {
      track.durations[i] = static_cast<uint64_t>(track.times[i + 1] - track.times[i]);
    }
  }
  if (count > 1 && track.durations[count - 1] == 0) track.durations[count - 1] = track.durations[count - 2];
}

// The sample table of a track: stsd as recorded, then times, chunks, sizes and places.
// Sound of whole frames is laid out as QuickTime keeps it: one table sample a frame.
bool WriteSampleTable(BoxWriter& out, const std::vector<uint8_t>& moov, const Box& stsd, const Track& track,
                      uint64_t bytesPerFrame, uint64_t& duration) {
  size_t stbl = out.Begin(BoxType("stbl"));
  out.Put(moov.data() + stsd.offset, stsd.size);
  const size_t count = track.sizes.size();
  duration = 0;
  size_t stts = out.Begin(BoxType("stts"));
  out.Put32(0);
  size_t entryCount = out.bytes.size();
  out.Put32(0);
  uint32_t entries = 0;
  if (bytesPerFrame) {
    for (size_t i = 0; i < count; ++i) duration += track.sizes[i] / bytesPerFrame;
    if (duration > UINT32_MAX) return false;
    out.Put32(static_cast<uint32_t>(duration));
    out.Put32(1);
    entries = 1;
  } else {
    for (size_t i = 0; i < count;) {
      size_t j = i;
      while (j < count && track.durations[j] == track.durations[i]) ++j;
      if (track.durations[i] > UINT32_MAX) return false;
      out.Put32(static_cast<uint32_t>(j - i));
      out.Put32(static_cast<uint32_t>(track.durations[i]));
      duration += track.durations[i] * (j - i);
      ++entries;
      i = j;
    }
  }
  out.Patch32(entryCount, entries);
  if (!out.End(stts)) return false;

  if (!bytesPerFrame) {
    bool allSync = true;
    for (bool sync : track.sync) allSync = allSync && sync;
    if (!allSync) {
      size_t stss = out.Begin(BoxType("stss"));
      out.Put32(0);
      uint32_t syncs = 0;
      for (bool sync : track.sync) syncs += sync;
      out.Put32(syncs);
      for (size_t i = 0; i < count; ++i) {
        if (track.sync[i]) out.Put32(static_cast<uint32_t>(i + 1));
      }
      if (!out.End(stss)) return false;
    }
  }

  // Chunks: samples (or sound frames) per chunk, run-length coded.
  std::vector<uint64_t> perChunk;
  for (const Track::Chunk& chunk : track.chunks) {
    uint64_t samples = chunk.count;
    if (bytesPerFrame) {
      samples = 0;
      for (size_t i = chunk.first; i < chunk.first + chunk.count; ++i) samples += track.sizes[i] / bytesPerFrame;
    }
    perChunk.push_back(samples);
  }
  size_t stsc = out.Begin(BoxType("stsc"));
  out.Put32(0);
  size_t stscCount = out.bytes.size();
  out.Put32(0);
  uint32_t runs = 0;
  for (size_t c = 0; c < track.chunks.size(); ++c) {
    if (c > 0 && perChunk[c] == perChunk[c - 1] && track.chunks[c].description == track.chunks[c - 1].description) {
      continue;
    }
    if (perChunk[c] > UINT32_MAX) return false;
    out.Put32(static_cast<uint32_t>(c + 1));
    out.Put32(static_cast<uint32_t>(perChunk[c]));
    out.Put32(track.chunks[c].description);
    ++runs;
  }
  out.Patch32(stscCount, runs);
  if (!out.End(stsc)) return false;

  size_t stsz = out.Begin(BoxType("stsz"));
  out.Put32(0);
  if (bytesPerFrame) {
    out.Put32(static_cast<uint32_t>(bytesPerFrame));
    out.Put32(static_cast<uint32_t>(duration));
  } else {
    bool same = true;
    for (size_t i = 1; i < count && same; ++i) same = track.sizes[i] == track.sizes[0];
    out.Put32(same ? track.sizes[0] : 0);
    out.Put32(static_cast<uint32_t>(count));
    if (!same) {
      for (uint32_t size : track.sizes) out.Put32(size);
    }
  }
  if (!out.End(stsz)) return false;

  bool wide = false;
  for (const Track::Chunk& chunk : track.chunks) wide = wide || track.offsets[chunk.first] > UINT32_MAX;
  size_t places = out.Begin(wide ? BoxType("co64") : BoxType("stco"));
  out.Put32(0);
  out.Put32(static_cast<uint32_t>(track.chunks.size()));
  for (const Track::Chunk& chunk : track.chunks) {
    if (wide) {
      out.Put64(track.offsets[chunk.first]);
    } else {
      out.Put32(static_cast<uint32_t>(track.offsets[chunk.first]));
    }
  }
  if (!out.End(places)) return false;
  return out.End(stbl);
}

// Copies the header box at `box` of moov and sets its duration; the field sits after the
// version, two dates (32 or 64 bits each) and `before` more bytes.
bool CopyWithDuration(BoxWriter& out, const std::vector<uint8_t>& moov, const Box& box, uint32_t before,
                      uint64_t duration) {
  size_t start = out.bytes.size();
  out.Put(moov.data() + box.offset, box.size);
  bool wide = false;
  uint64_t at = BoxReader::AfterDates(moov, box, wide) + before;
  if (at + (wide ? 8 : 4) > box.size) return false;
  return out.PatchDuration(start + at, wide, duration);
}

// The new moov: the first one's boxes with durations set, sample tables filled and the
// fragments' defaults (mvex) left out.
bool WriteIndex(BoxWriter& out, const std::vector<uint8_t>& moov, const Box& moovBox, std::vector<Track>& tracks) {
  std::vector<Box> children;
  if (!BoxReader::Children(moov, moovBox, children)) return false;
  const Box* mvhd = BoxReader::Find(children, BoxType("mvhd"));
  if (!mvhd) return false;
  const uint64_t movieTimescale = BoxReader::FirstFieldAfterDates(moov, *mvhd);
  if (movieTimescale == 0) return false;

  // Tracks first, so the movie's duration is known when its header is written.
  BoxWriter traks;
  uint64_t movieDuration = 0;
  for (Track& track : tracks) {
    if (track.sizes.empty()) continue;  // a track with no sample is left out
    uint64_t bytesPerFrame = 0;
    SettleDurations(track, bytesPerFrame);
    std::vector<Box> trakChildren, mdiaChildren, minfChildren, stblChildren;
    if (!BoxReader::Children(moov, track.trak, trakChildren)) return false;
    const Box* mdia = BoxReader::Find(trakChildren, BoxType("mdia"));
    if (!mdia || !BoxReader::Children(moov, *mdia, mdiaChildren)) return false;
    const Box* minf = BoxReader::Find(mdiaChildren, BoxType("minf"));
    if (!minf || !BoxReader::Children(moov, *minf, minfChildren)) return false;
    const Box* stbl = BoxReader::Find(minfChildren, BoxType("stbl"));
    if (!stbl || !BoxReader::Children(moov, *stbl, stblChildren)) return false;
    const Box* stsd = BoxReader::Find(stblChildren, BoxType("stsd"));
    if (!stsd) return false;
    BoxWriter table;
    uint64_t mediaDuration = 0;
    if (!WriteSampleTable(table, moov, *stsd, track, bytesPerFrame, mediaDuration)) return false;
    // Rounded up: an edit shorter than the media would cut its last sample short.
    uint64_t trackDuration = (mediaDuration * movieTimescale + track.timescale - 1) / track.timescale;
    if (trackDuration > movieDuration) movieDuration = trackDuration;

    size_t trak = traks.Begin(BoxType("trak"));
    for (const Box& box : trakChildren) {
      if (box.type == BoxType("tkhd")) {
        if (!CopyWithDuration(traks, moov, box, 8, trackDuration)) return false;  // after track ID and a reserved word
        // The track plays from its first sample for its whole duration: readers that find no
        // edit would stretch a track to the movie's length.
        size_t edts = traks.Begin(BoxType("edts"));
        size_t elst = traks.Begin(BoxType("elst"));
        bool wideEdit = trackDuration > UINT32_MAX;
        traks.Put32(wideEdit ? 0x01000000 : 0);
        traks.Put32(1);
        if (wideEdit) {
          traks.Put64(trackDuration);
          traks.Put64(0);
        } else {
          traks.Put32(static_cast<uint32_t>(trackDuration));
          traks.Put32(0);
        }
        traks.Put32(0x00010000);  // rate 1.0
        if (!traks.End(elst) || !traks.End(edts)) return false;
      } else if (box.type == BoxType("mdia")) {
        size_t mdiaStart = traks.Begin(BoxType("mdia"));
        for (const Box& part : mdiaChildren) {
          if (part.type == BoxType("mdhd")) {
            if (!CopyWithDuration(traks, moov, part, 4, mediaDuration)) return false;  // after the timescale
          } else if (part.type == BoxType("minf")) {
            size_t minfStart = traks.Begin(BoxType("minf"));
            for (const Box& info : minfChildren) {
              if (info.type == BoxType("stbl")) {
                traks.Put(table.bytes.data(), table.bytes.size());
              } else {
                traks.Put(moov.data() + info.offset, info.size);
              }
            }
            if (!traks.End(minfStart)) return false;
          } else {
            traks.Put(moov.data() + part.offset, part.size);
          }
        }
        if (!traks.End(mdiaStart)) return false;
      } else if (box.type != BoxType("edts")) {  // replaced by the edit above
        traks.Put(moov.data() + box.offset, box.size);
      }
    }
    if (!traks.End(trak)) return false;
  }

  size_t start = out.Begin(BoxType("moov"));
  for (const Box& box : children) {
    if (box.type == BoxType("mvhd")) {
      if (!CopyWithDuration(out, moov, box, 4, movieDuration)) return false;  // after the timescale
      out.Put(traks.bytes.data(), traks.bytes.size());
    } else if (box.type != BoxType("trak") && box.type != BoxType("mvex")) {
      out.Put(moov.data() + box.offset, box.size);
    }
  }
  return out.End(start);
}

}  // namespace

long InPlaceIndex::Write(const std::string& path) {
  MovieFile file(path);
  if (long rc = file.Open()) return rc;

  // The top-level boxes; a box that runs past the end is the tail of a cut-off take.
  std::vector<Box> top;
  if (long rc = file.TopLevelBoxes(top)) return rc;

  // The first moov describes the tracks; a moov after the samples is an index written
  // before by a finish that was cut off while hiding the fragment headers.
  const Box* first = nullptr;
  const Box* index = nullptr;
  bool samplesSeen = false;
  for (const Box& box : top) {
    if (box.type == BoxType("moov")) {
      if (!first && !samplesSeen) first = &box;
      if (samplesSeen) index = &box;
    }
    if (box.type == BoxType("mdat")) samplesSeen = true;
  }
  uint64_t indexOffset = 0;
  if (!index) {
    if (!first) return Unsupported(path, "no movie header before the samples");
    std::vector<uint8_t> moov;
    if (long rc = file.Read(first->offset, first->size, moov)) return rc;
    std::vector<Track> tracks;
    Box moovBox = *first;
    moovBox.offset = 0;
    if (!ReadTracks(moov, moovBox, tracks)) return Unsupported(path, "its tracks cannot be read");

    // Every complete fragment, moof then mdat. The take ends at the last one: what follows
    // is a fragment cut off (its mdat missing) or the writer's fragment table (mfra), both
    // overwritten by the index. Anything else is not a layout to overwrite.
    uint64_t end = 0;
    std::vector<uint8_t> moof;
    for (size_t i = 0; i < top.size(); ++i) {
      const Box& box = top[i];
      const bool last = i + 1 == top.size();
      if (box.type == BoxType("ftyp") || &box == first || box.type == BoxType("free") || box.type == BoxType("skip") ||
          box.type == BoxType("wide")) {
        end = box.offset + box.size;
        continue;
      }
      if ((box.type == BoxType("moof") || box.type == BoxType("mfra")) && last) break;
      if (box.type != BoxType("moof") || top[i + 1].type != BoxType("mdat")) {
        return Unsupported(path, "it holds boxes other than the fragments of a take");
      }
      const Box& mdat = top[i + 1];
      if (long rc = file.Read(box.offset, box.size, moof)) return rc;
      if (!ReadFragment(moof, box.offset, mdat.offset + mdat.header, mdat.offset + mdat.size, tracks)) {
        return Unsupported(path, "a fragment cannot be read");
      }
      end = mdat.offset + mdat.size;
      ++i;
    }
    for (const Track& track : tracks) {
      if (!track.times.empty() && track.times.front() != 0) {
        return Unsupported(path, "a track does not start at the beginning");
      }
    }
    bool anySample = false;
    for (const Track& track : tracks) anySample = anySample || !track.sizes.empty();
    if (!anySample) {
      KTN_LOG("The movie %s holds no complete sample to keep", path.c_str());
      return ENODATA;
    }
    BoxWriter out;
    if (!WriteIndex(out, moov, moovBox, tracks)) return Unsupported(path, "its index would not fit its boxes");

    // The index goes after the last complete fragment (over anything cut off) and is on
    // disk before any fragment header is hidden.
    if (long rc = file.Write(end, out.bytes.data(), out.bytes.size())) {
      file.Truncate(end);
      return rc;
    }
    if (long rc = file.Truncate(end + out.bytes.size())) return rc;
    if (long rc = file.Sync()) return rc;
    indexOffset = end;
  } else {
    indexOffset = index->offset;
  }

  // Hides the fragment headers, last first, then the first moov: until it goes, readers
  // still find the fragments through it (a cut here leaves the start of the take to them);
  // afterwards only the index.
  for (auto box = top.rbegin(); box != top.rend(); ++box) {
    if (box->type == BoxType("moof") && box->offset < indexOffset) {
      if (long rc = file.Hide(box->offset)) return rc;
    }
  }
  if (long rc = file.Sync()) return rc;
  for (const Box& box : top) {
    if (box.type == BoxType("moov") && box.offset < indexOffset) {
      if (long rc = file.Hide(box.offset)) return rc;
    }
  }
  return file.Sync();
}

}  // namespace KTN
