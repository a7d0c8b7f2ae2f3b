// A movie's tracks, read from its moov.
#include "Movie/MovieTracks.h"

namespace KTN {

namespace {

// The boxes along the track's way to its sample descriptions, as far as they can be read.
void ReadTrak(const std::vector<uint8_t>& bytes, TrackDescription& track) {
  std::vector<Box> children;
  auto find = [&](const Box& parent, uint32_t type, Box& found) {
    if (!parent.size || !BoxReader::Children(bytes, parent, children)) return false;
    const Box* box = BoxReader::Find(children, type);
    if (box) found = *box;
    return box != nullptr;
  };
  if (find(track.trak, BoxTypes::kTkhd, track.tkhd)) {
    HeaderFields header;
    if (BoxReader::ReadHeaderFields(bytes, track.tkhd, header)) track.id = header.first;
  }
  find(track.trak, BoxTypes::kMdia, track.mdia);
  if (find(track.mdia, BoxTypes::kMdhd, track.mdhd)) {
    HeaderFields header;
    if (BoxReader::ReadHeaderFields(bytes, track.mdhd, header)) track.timescale = header.first;
  }
  bool handlerRead = false;
  if (find(track.mdia, BoxTypes::kHdlr, track.hdlr)) {
    BoxReader handler(bytes, track.hdlr);
    handler.Seek(kHandlerTypeAt);
    track.handler = handler.U32();
    handlerRead = handler.ok;
  }
  find(track.mdia, BoxTypes::kMinf, track.minf);
  find(track.minf, BoxTypes::kStbl, track.stbl);
  find(track.stbl, BoxTypes::kStsd, track.stsd);
  track.complete = track.id != 0 && track.timescale != 0 && handlerRead;
}

}  // namespace

bool MovieTracks::Read(const std::vector<uint8_t>& bytes, const Box& moov) {
  tracks.clear();
  defaultsRead = true;
  std::vector<Box> children, defaults;
  if (!BoxReader::Children(bytes, moov, children)) return false;
  for (const Box& child : children) {
    if (child.type != BoxTypes::kTrak) continue;
    TrackDescription track;
    track.trak = child;
    ReadTrak(bytes, track);
    tracks.push_back(track);
  }
  for (const Box& mvex : children) {
    if (mvex.type != BoxTypes::kMvex) continue;
    if (!BoxReader::Children(bytes, mvex, defaults)) {
      defaultsRead = false;
      continue;
    }
    for (const Box& trex : defaults) {
      if (trex.type != BoxTypes::kTrex) continue;
      BoxReader fields(bytes, trex);
      fields.U32();  // version and flags
      const uint32_t id = fields.U32();
      const uint32_t description = fields.U32();
      const uint32_t duration = fields.U32();
      const uint32_t size = fields.U32();
      const uint32_t flags = fields.U32();
      if (!fields.ok) {
        defaultsRead = false;
        continue;
      }
      for (TrackDescription& track : tracks) {
        if (track.id != id) continue;
        track.defaultDescription = description;
        track.defaultDuration = duration;
        track.defaultSize = size;
        track.defaultFlags = flags;
      }
    }
  }
  return true;
}

bool MovieTracks::AllComplete() const {
  if (tracks.empty() || !defaultsRead) return false;
  for (size_t i = 0; i < tracks.size(); ++i) {
    if (!tracks[i].complete || Find(tracks[i].id) != static_cast<int>(i)) return false;
  }
  return true;
}

int MovieTracks::Find(uint32_t id) const {
  if (id == 0) return -1;  // no track's: an ID counts from 1
  for (size_t i = 0; i < tracks.size(); ++i) {
    if (tracks[i].id == id) return static_cast<int>(i);
  }
  return -1;
}

const TrackDescription* MovieTracks::ForTrak(const Box& trak) const {
  for (const TrackDescription& track : tracks) {
    if (track.trak.offset == trak.offset) return &track;
  }
  return nullptr;
}

}  // namespace KTN
