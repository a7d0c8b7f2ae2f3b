// Follows a movie file as it grows, or reads it once: its summary, from its own boxes.
#include "Movie/MovieFollower.h"

#include <algorithm>

#include "Movie/BoxReader.h"
#include "Movie/MovieFile.h"
#include "Movie/TimecodeTrack.h"
#include "Util/TimeCode.h"

namespace KTN {

namespace {

// What the summary needs of one track.
struct TrackFacts {
  uint32_t id = 0;
  uint32_t handler = 0;    // 'vide', 'soun', 'tmcd'
  uint32_t timescale = 0;
  uint64_t samples = 0;
  uint64_t duration = 0;   // in timescale units
  uint32_t shortest = 0;   // the shortest sample duration
  // Fragments: the defaults of the movie's trex.
  uint32_t defaultDuration = 0;
  // A timecode track's description and first sample's place.
  uint32_t timecodeFlags = 0;
  uint32_t timecodeScale = 0;
  uint32_t timecodeFrameDuration = 0;
  uint32_t timecodeFrames = 0;
  uint64_t firstChunk = 0;
  bool fieldOrder = false;  // a picture description that says its fields ('fiel')
};

// The sample table of a track: counts, durations, the first chunk and a timecode's entry.
void ReadSampleTable(const std::vector<uint8_t>& moov, const Box& stbl, TrackFacts& track) {
  std::vector<Box> tables;
  if (!BoxReader::Children(moov, stbl, tables)) return;
  if (const Box* stsz = BoxReader::Find(tables, BoxType("stsz"))) {
    BoxReader sizes(moov, *stsz);
    sizes.Seek(8);
    track.samples = sizes.U32();
  }
  if (const Box* stts = BoxReader::Find(tables, BoxType("stts"))) {
    BoxReader times(moov, *stts);
    times.Seek(4);
    uint32_t entries = times.U32();
    for (uint32_t i = 0; i < entries && times.ok; ++i) {
      uint32_t count = times.U32();
      uint32_t delta = times.U32();
      if (!times.ok) break;
      track.duration += static_cast<uint64_t>(count) * delta;
      if (count && delta && (!track.shortest || delta < track.shortest)) track.shortest = delta;
    }
  }
  for (uint32_t type : {BoxType("stco"), BoxType("co64")}) {
    if (const Box* places = BoxReader::Find(tables, type)) {
      BoxReader chunks(moov, *places);
      chunks.Seek(4);
      if (chunks.U32() > 0) track.firstChunk = type == BoxType("co64") ? chunks.U64() : chunks.U32();
    }
  }
  if (const Box* stsd = BoxReader::Find(tables, BoxType("stsd"))) {
    std::vector<Box> entries;
    if (BoxReader::ChildBoxes(moov.data(), stsd->offset + stsd->header + 8, stsd->offset + stsd->size, entries) &&
        !entries.empty() && entries[0].type == BoxType("tmcd")) {
      BoxReader entry(moov, entries[0]);
      entry.Seek(12);  // reserved, data reference index, reserved
      track.timecodeFlags = entry.U32();
      track.timecodeScale = entry.U32();
      track.timecodeFrameDuration = entry.U32();
      track.timecodeFrames = entry.U8();
      if (!entry.ok) track.timecodeScale = 0;
    } else if (!entries.empty() && entries[0].size > kVisualEntryFields) {
      // A picture description's own boxes follow its fixed fields.
      std::vector<Box> extras;
      if (BoxReader::ChildBoxes(moov.data(), entries[0].offset + kVisualEntryFields, entries[0].offset + entries[0].size, extras)) {
        track.fieldOrder = BoxReader::Find(extras, BoxType("fiel")) != nullptr;
      }
    }
  }
}

// The tracks of a moov; trex defaults when it lets fragments follow.
bool ReadTracks(const std::vector<uint8_t>& moov, std::vector<TrackFacts>& tracks) {
  Box whole;  // the moov itself, header first
  whole.size = moov.size();
  whole.header = moov.size() >= 16 && moov[0] == 0 && moov[1] == 0 && moov[2] == 0 && moov[3] == 1 ? 16 : 8;
  std::vector<Box> children, inner, media, info;
  if (!BoxReader::Children(moov, whole, children)) return false;
  for (const Box& child : children) {
    if (child.type == BoxType("trak")) {
      TrackFacts track;
      if (!BoxReader::Children(moov, child, inner)) continue;
      const Box* tkhd = BoxReader::Find(inner, BoxType("tkhd"));
      const Box* mdia = BoxReader::Find(inner, BoxType("mdia"));
      if (!tkhd || !mdia || !BoxReader::Children(moov, *mdia, media)) continue;
      track.id = BoxReader::FirstFieldAfterDates(moov, *tkhd);
      if (const Box* mdhd = BoxReader::Find(media, BoxType("mdhd"))) {
        track.timescale = BoxReader::FirstFieldAfterDates(moov, *mdhd);
      }
      if (const Box* hdlr = BoxReader::Find(media, BoxType("hdlr"))) {
        BoxReader handler(moov, *hdlr);
        handler.Seek(8);
        track.handler = handler.U32();
      }
      const Box* minf = BoxReader::Find(media, BoxType("minf"));
      if (minf && BoxReader::Children(moov, *minf, info)) {
        if (const Box* stbl = BoxReader::Find(info, BoxType("stbl"))) ReadSampleTable(moov, *stbl, track);
      }
      tracks.push_back(track);
    } else if (child.type == BoxType("mvex") && BoxReader::Children(moov, child, inner)) {
      for (const Box& trex : inner) {
        if (trex.type != BoxType("trex")) continue;
        BoxReader defaults(moov, trex);
        defaults.Seek(4);
        uint32_t id = defaults.U32();
        defaults.U32();  // description
        uint32_t duration = defaults.U32();
        for (TrackFacts& track : tracks) {
          if (track.id == id) track.defaultDuration = duration;
        }
      }
    }
  }
  return true;
}

// Adds what one complete fragment holds to the tracks. Returns the index of the one track
// it added to, whose facts before are copied to *before, or -1 when it added to none or
// to several.
int ReadFragment(const std::vector<uint8_t>& moof, std::vector<TrackFacts>& tracks, TrackFacts* before) {
  int added = -1;
  bool several = false;
  std::vector<Box> top, parts;
  if (!BoxReader::ChildBoxes(moof.data(), 0, moof.size(), top) || top.size() != 1) return -1;
  std::vector<Box> trafs;
  if (!BoxReader::Children(moof, top[0], trafs)) return -1;
  for (const Box& traf : trafs) {
    if (traf.type != BoxType("traf") || !BoxReader::Children(moof, traf, parts)) continue;
    const Box* tfhd = BoxReader::Find(parts, BoxType("tfhd"));
    if (!tfhd) continue;
    BoxReader header(moof, *tfhd);
    uint32_t flags = header.U32() & 0xFFFFFF;
    uint32_t id = header.U32();
    TrackFacts* track = nullptr;
    for (TrackFacts& candidate : tracks) {
      if (candidate.id == id) track = &candidate;
    }
    if (!track) continue;
    const int index = static_cast<int>(track - tracks.data());
    if (added < 0 && !several) {
      added = index;
      if (before) *before = *track;
    } else if (added != index) {
      several = true;
    }
    if (flags & 0x1) header.U64();
    if (flags & 0x2) header.U32();
    uint32_t defaultDuration = flags & 0x8 ? header.U32() : track->defaultDuration;
    uint64_t time = track->duration;
    if (const Box* tfdt = BoxReader::Find(parts, BoxType("tfdt"))) {
      BoxReader decode(moof, *tfdt);
      bool wide = decode.U8() == 1;
      decode.Seek(4);
      time = wide ? decode.U64() : decode.U32();
    }
    for (const Box& trun : parts) {
      if (trun.type != BoxType("trun")) continue;
      BoxReader run(moof, trun);
      uint32_t runFlags = run.U32() & 0xFFFFFF;
      uint32_t count = run.U32();
      if (runFlags & 0x1) run.U32();
      if (runFlags & 0x4) run.U32();
      if (!(runFlags & 0xF00)) {
        // Every sample of the run takes the defaults: counted at once, for a count read from
        // a file (up to four thousand million) is no bound on a loop.
        track->samples += count;
        time += static_cast<uint64_t>(count) * defaultDuration;
        if (count && defaultDuration && (!track->shortest || defaultDuration < track->shortest)) {
          track->shortest = defaultDuration;
        }
        continue;
      }
      // Each sample reads its own fields: the run's bytes bound the loop.
      for (uint32_t i = 0; i < count && run.ok; ++i) {
        uint32_t duration = runFlags & 0x100 ? run.U32() : defaultDuration;
        if (runFlags & 0x200) run.U32();
        if (runFlags & 0x400) run.U32();
        if (runFlags & 0x800) run.U32();
        ++track->samples;
        time += duration;
        if (duration && (!track->shortest || duration < track->shortest)) track->shortest = duration;
      }
    }
    track->duration = std::max(track->duration, time);
  }
  return several ? -1 : added;
}

}  // namespace

struct MovieFollower::Tracks {
  std::vector<TrackFacts> facts;
  // The last fragment read that added to a picture track: the writer lengthens that
  // picture in place while the slots after it have none, so its moof is read again.
  struct LastPicture {
    uint64_t offset = 0;
    uint64_t size = 0;    // 0: none
    size_t track = 0;     // in facts
    TrackFacts before;    // the track's facts before the fragment was added
  } lastPicture;
};

MovieFollower::MovieFollower(const std::string& path) : mPath(path), mTracks(new Tracks) {}

MovieFollower::~MovieFollower() = default;

long MovieFollower::Update() {
  MovieFile file(mPath);
  if (long rc = file.Open(false)) return rc;
  std::vector<Box> top;
  if (mNext) {
    // Only what was written since: complete fragments; anything else (the index of a
    // finish) is read from the start again.
    if (long rc = file.TopLevelBoxes(top, nullptr, mNext)) return rc;
    bool onlyFragments = true;
    for (const Box& box : top) onlyFragments = onlyFragments && (box.type == BoxType("moof") || box.type == BoxType("mdat"));
    if (onlyFragments) {
      if (long rc = ReadLastPictureAgain(file)) return rc;
      return ReadFragments(file, top);
    }
    mNext = 0;
  }
  mTracks->facts.clear();
  mTracks->lastPicture = Tracks::LastPicture();
  mSummary = MovieSummary();
  if (long rc = file.TopLevelBoxes(top)) return rc;
  std::vector<const Box*> movieHeaders;
  size_t fragments = 0;
  for (const Box& box : top) {
    if (box.type == BoxType("moov")) movieHeaders.push_back(&box);
    if (box.type == BoxType("moof")) ++fragments;
  }
  if (movieHeaders.empty()) return 0;  // not a movie
  // The last movie header describes the most: the index a finish wrote after the samples,
  // or the only one there is.
  std::vector<uint8_t> moov;
  if (long rc = file.Read(movieHeaders.back()->offset, movieHeaders.back()->size, moov)) return rc;
  if (!ReadTracks(moov, mTracks->facts)) return 0;
  bool anySample = false;
  for (const TrackFacts& track : mTracks->facts) anySample = anySample || track.samples > 0;
  if (movieHeaders.size() > 1) {
    mSummary.layout = MovieSummary::Layout::kFinishCut;
  } else if (fragments > 0 || !anySample) {
    // A take being written, cut off, or not begun: its samples are in the fragments after
    // the (sample-less) movie header, which later updates follow.
    mSummary.layout = MovieSummary::Layout::kFragments;
    std::vector<Box> after;
    for (const Box& box : top) {
      if (box.offset > movieHeaders.back()->offset) after.push_back(box);
    }
    mNext = movieHeaders.back()->offset + movieHeaders.back()->size;
    return ReadFragments(file, after);
  } else {
    mSummary.layout = MovieSummary::Layout::kFinished;
  }
  return Summarise(file);
}

long MovieFollower::ReadFragments(MovieFile& file, const std::vector<Box>& boxes) {
  // Every complete fragment: a moof followed by its whole mdat.
  std::vector<uint8_t> moof;
  for (size_t i = 0; i + 1 < boxes.size(); ++i) {
    if (boxes[i].type != BoxType("moof") || boxes[i + 1].type != BoxType("mdat")) continue;
    if (long rc = file.Read(boxes[i].offset, boxes[i].size, moof)) return rc;
    TrackFacts before;
    const int added = ReadFragment(moof, mTracks->facts, &before);
    if (added < 0 || mTracks->facts[static_cast<size_t>(added)].handler == BoxType("vide")) {
      // Unless it is known to hold no picture, this fragment ends the last picture's run.
      mTracks->lastPicture = Tracks::LastPicture();
      if (added >= 0) mTracks->lastPicture = {boxes[i].offset, boxes[i].size, static_cast<size_t>(added), before};
    }
    mNext = boxes[i + 1].offset + boxes[i + 1].size;
    ++i;
  }
  return Summarise(file);
}

long MovieFollower::ReadLastPictureAgain(MovieFile& file) {
  Tracks::LastPicture& last = mTracks->lastPicture;
  if (!last.size) return 0;
  std::vector<uint8_t> moof;
  if (last.offset + last.size <= file.Size()) {
    if (long rc = file.Read(last.offset, last.size, moof)) return rc;
  }
  BoxReader box(moof.data(), moof.size());
  if (box.U32() != last.size || box.U32() != BoxType("moof")) {
    last = Tracks::LastPicture();  // hidden by a finish (or cut off), which an update reads whole
    return 0;
  }
  // The fragment is added again to the track as it was before it, so the picture counts
  // once and its end is the one written now (a read that met the rewrite halfway is set
  // right by the next). Its first duration stays the track's frame measure: a lengthened
  // one is not a frame's.
  TrackFacts& track = mTracks->facts[last.track];
  const uint32_t shortest = track.shortest;
  track = last.before;
  ReadFragment(moof, mTracks->facts, nullptr);
  track.shortest = shortest;
  return 0;
}

long MovieFollower::Summarise(MovieFile& file) {
  MovieSummary::Layout layout = mSummary.layout;
  mSummary = MovieSummary();
  mSummary.layout = layout;
  for (const TrackFacts& track : mTracks->facts) {
    if (track.handler == BoxType("vide") && !mSummary.videoTimescale) {
      mSummary.pictures = track.samples;
      mSummary.videoTimescale = track.timescale;
      mSummary.frameDuration = track.shortest;
      mSummary.pictureSlots = track.shortest ? (track.duration + track.shortest - 1) / track.shortest : 0;
      mSummary.hasFieldOrder = track.fieldOrder;
    } else if (track.handler == BoxType("soun") && !mSummary.soundRate) {
      mSummary.soundRate = track.timescale;
      mSummary.soundFrames = track.duration;
    } else if (track.handler == BoxType("tmcd") && !mSummary.hasTimecode && track.firstChunk &&
               TimecodeTrack::CountableRate(track.timecodeFrameDuration, track.timecodeScale)) {
      std::vector<uint8_t> sample;
      if (file.Read(track.firstChunk, 4, sample) != 0) continue;
      BoxReader value(sample.data(), sample.size());
      const bool drop = track.timecodeFlags & 1;
      Util::TimeCodeFormat format = Util::tcfFromDuration(track.timecodeFrameDuration, track.timecodeScale, drop, -1);
      Util::CTimeCode start = Util::CTimeCode::FromFrame(format, static_cast<int>(value.U32()), Util::tcfUnknown);
      mSummary.startTimecode = start.ToString(false);
      mSummary.hasTimecode = true;
    }
  }
  return 0;
}

}  // namespace KTN
