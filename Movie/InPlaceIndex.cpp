// Appends one ordinary index to a fragmented movie and hides its fragment headers.
#include "Movie/InPlaceIndex.h"

#include <errno.h>
#include <string.h>

#include <string>
#include <vector>

#include "Movie/BoxReader.h"
#include "Movie/BoxWriter.h"
#include "Movie/EditList.h"
#include "Movie/FragmentSamples.h"
#include "Movie/MovieFile.h"
#include "Movie/MovieTracks.h"
#include "Movie/TopLevelBoxes.h"
#include "Util/Log.h"

namespace KTN {

namespace {

// One track of the take: where its samples lie and how long each lasts.
struct Track {
  const TrackDescription* description = nullptr;
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
  std::vector<Chunk> chunks;  // one for each run of a fragment
};

long Unsupported(const std::string& path, const char* why) {
  KTN_LOG("The movie %s cannot be indexed in place: %s", path.c_str(), why);
  return EOPNOTSUPP;
}

// Gathers the samples of the fragments into the tracks, each run a chunk.
class Gatherer : public FragmentSamples::Visitor {
 public:
  explicit Gatherer(std::vector<Track>& tracks) : mTracks(tracks) {}

  uint64_t NextDecodeTime(size_t track) override {
    const Track& t = mTracks[track];
    return t.times.empty() ? 0 : static_cast<uint64_t>(t.times.back()) + t.durations.back();
  }

  void Sample(const FragmentSample& sample) override {
    Track& track = mTracks[sample.track];
    if (sample.runSamples) track.chunks.push_back({track.offsets.size(), sample.runSamples, sample.description});
    track.offsets.push_back(sample.offset);
    track.sizes.push_back(sample.size);
    track.durations.push_back(sample.duration);
    track.times.push_back(static_cast<int64_t>(sample.decodeTime));
    track.sync.push_back(sample.sync);
  }

 private:
  std::vector<Track>& mTracks;
};

// Settles each sample's duration: a picture lasts until the next one starts (which keeps
// the time of frames a full backlog dropped); sound lasts as many sample frames as it holds.
// bytesPerFrame receives the sound's frame size when every sample is whole frames of it.
void SettleDurations(Track& track, uint64_t& bytesPerFrame) {
  bytesPerFrame = 0;
  const size_t count = track.sizes.size();
  if (track.description->handler == Handlers::kSound) {
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
      // Unsigned: two decode times read from a file may lie further apart than int64_t holds.
      track.durations[i] = static_cast<uint64_t>(track.times[i + 1]) - static_cast<uint64_t>(track.times[i]);
    }
  }
  if (count > 1 && track.durations[count - 1] == 0) track.durations[count - 1] = track.durations[count - 2];
}

// The sample table of a track: stsd as recorded, then times, chunks, sizes and places.
// Sound of whole frames is laid out as QuickTime keeps it: one table sample a frame.
bool WriteSampleTable(BoxWriter& out, const std::vector<uint8_t>& moov, const Box& stsd, const Track& track,
                      uint64_t bytesPerFrame, uint64_t& duration) {
  size_t stbl = out.Begin(BoxTypes::kStbl);
  out.Put(moov.data() + stsd.offset, stsd.size);
  const size_t count = track.sizes.size();
  duration = 0;
  size_t stts = out.Begin(BoxTypes::kStts);
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
      size_t stss = out.Begin(BoxTypes::kStss);
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
  size_t stsc = out.Begin(BoxTypes::kStsc);
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

  size_t stsz = out.Begin(BoxTypes::kStsz);
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
  size_t places = out.Begin(wide ? BoxTypes::kCo64 : BoxTypes::kStco);
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

// Copies the header box (mvhd, tkhd, mdhd) at `box` of moov with its duration set.
bool CopyWithDuration(BoxWriter& out, const std::vector<uint8_t>& moov, const Box& box, uint64_t duration) {
  HeaderFields fields;
  if (!BoxReader::ReadHeaderFields(moov, box, fields)) return false;
  size_t start = out.bytes.size();
  out.Put(moov.data() + box.offset, box.size);
  return out.PatchDuration(start + fields.durationAt, fields.wide, duration);
}

// The new moov: the first one's boxes with durations set, sample tables filled and the
// fragments' defaults (mvex) left out.
bool WriteIndex(BoxWriter& out, const std::vector<uint8_t>& moov, const Box& moovBox, std::vector<Track>& tracks) {
  std::vector<Box> children;
  if (!BoxReader::Children(moov, moovBox, children)) return false;
  const Box* mvhd = BoxReader::Find(children, BoxTypes::kMvhd);
  HeaderFields movieHeader;
  if (!mvhd || !BoxReader::ReadHeaderFields(moov, *mvhd, movieHeader) || movieHeader.first == 0) return false;
  const uint64_t movieTimescale = movieHeader.first;

  // Tracks first, so the movie's duration is known when its header is written.
  BoxWriter traks;
  uint64_t movieDuration = 0;
  for (Track& track : tracks) {
    if (track.sizes.empty()) continue;  // a track with no sample is left out
    uint64_t bytesPerFrame = 0;
    SettleDurations(track, bytesPerFrame);
    const TrackDescription& described = *track.description;
    std::vector<Box> trakChildren, mdiaChildren, minfChildren;
    if (!described.stsd.size || !BoxReader::Children(moov, described.trak, trakChildren) ||
        !BoxReader::Children(moov, described.mdia, mdiaChildren) ||
        !BoxReader::Children(moov, described.minf, minfChildren)) {
      return false;
    }
    BoxWriter table;
    uint64_t mediaDuration = 0;
    if (!WriteSampleTable(table, moov, described.stsd, track, bytesPerFrame, mediaDuration)) return false;
    // Rounded up: an edit shorter than the media would cut its last sample short.
    uint64_t trackDuration = (mediaDuration * movieTimescale + described.timescale - 1) / described.timescale;
    if (trackDuration > movieDuration) movieDuration = trackDuration;

    size_t trak = traks.Begin(BoxTypes::kTrak);
    for (const Box& box : trakChildren) {
      if (box.type == BoxTypes::kTkhd) {
        if (!CopyWithDuration(traks, moov, box, trackDuration) || !EditList::Write(traks, trackDuration)) return false;
      } else if (box.type == BoxTypes::kMdia) {
        size_t mdiaStart = traks.Begin(BoxTypes::kMdia);
        for (const Box& part : mdiaChildren) {
          if (part.type == BoxTypes::kMdhd) {
            if (!CopyWithDuration(traks, moov, part, mediaDuration)) return false;
          } else if (part.type == BoxTypes::kMinf) {
            size_t minfStart = traks.Begin(BoxTypes::kMinf);
            for (const Box& info : minfChildren) {
              if (info.type == BoxTypes::kStbl) {
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
      } else if (box.type != BoxTypes::kEdts) {  // replaced by the edit written after the header
        traks.Put(moov.data() + box.offset, box.size);
      }
    }
    if (!traks.End(trak)) return false;
  }

  size_t start = out.Begin(BoxTypes::kMoov);
  for (const Box& box : children) {
    if (&box == mvhd) {  // the header read above; a second one, which readers ignore, is copied as it is
      if (!CopyWithDuration(out, moov, box, movieDuration)) return false;
      out.Put(traks.bytes.data(), traks.bytes.size());
    } else if (box.type != BoxTypes::kTrak && box.type != BoxTypes::kMvex) {
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
  TopLevelBoxes walk;
  if (long rc = walk.Read(file)) return rc;
  const std::vector<Box>& top = walk.boxes;

  // The first moov describes the tracks; a moov after the samples is an index written
  // before by a finish that was cut off while hiding the fragment headers.
  const Box* first = nullptr;
  const Box* index = nullptr;
  bool samplesSeen = false;
  for (const Box& box : top) {
    if (box.type == BoxTypes::kMoov) {
      if (!first && !samplesSeen) first = &box;
      if (samplesSeen) index = &box;
    }
    if (box.type == BoxTypes::kMdat) samplesSeen = true;
  }
  uint64_t indexOffset = 0;
  if (!index) {
    if (!first) return Unsupported(path, "no movie header before the samples");
    std::vector<uint8_t> moov;
    if (long rc = file.Read(first->offset, first->size, moov)) return rc;
    Box moovBox = *first;
    moovBox.offset = 0;
    MovieTracks described;
    if (!described.Read(moov, moovBox) || !described.AllComplete()) {
      return Unsupported(path, "its tracks cannot be read");
    }
    std::vector<Track> tracks(described.tracks.size());
    for (size_t i = 0; i < tracks.size(); ++i) tracks[i].description = &described.tracks[i];
    Gatherer gatherer(tracks);

    // Every complete fragment, moof then mdat. The take ends at the last one: what follows
    // is a fragment cut off (its mdat missing) or the writer's fragment table (mfra), both
    // overwritten by the index. Anything else is not a layout to overwrite.
    uint64_t end = 0;
    std::vector<uint8_t> moof;
    for (size_t i = 0; i < top.size(); ++i) {
      const Box& box = top[i];
      const bool last = i + 1 == top.size();
      if (box.type == BoxTypes::kFtyp || &box == first || box.type == BoxTypes::kFree || box.type == BoxTypes::kSkip ||
          box.type == BoxTypes::kWide) {
        end = box.offset + box.size;
        continue;
      }
      if ((box.type == BoxTypes::kMoof || box.type == BoxTypes::kMfra) && last) break;
      if (box.type != BoxTypes::kMoof || top[i + 1].type != BoxTypes::kMdat) {
        return Unsupported(path, "it holds boxes other than the fragments of a take");
      }
      const Box& mdat = top[i + 1];
      if (long rc = file.Read(box.offset, box.size, moof)) return rc;
      const FragmentSamples::Status status = FragmentSamples::Walk(moof, box.offset, mdat.offset + mdat.header,
                                                                   mdat.offset + mdat.size, described, gatherer);
      if (status != FragmentSamples::Status::kRead) {
        return Unsupported(path, ("a fragment cannot be read: " + std::string(FragmentSamples::Why(status))).c_str());
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
    if (box->type == BoxTypes::kMoof && box->offset < indexOffset) {
      if (long rc = file.Hide(box->offset)) return rc;
    }
  }
  if (long rc = file.Sync()) return rc;
  for (const Box& box : top) {
    if (box.type == BoxTypes::kMoov && box.offset < indexOffset) {
      if (long rc = file.Hide(box.offset)) return rc;
    }
  }
  return file.Sync();
}

}  // namespace KTN
