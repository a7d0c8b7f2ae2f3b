// Follows a movie file as it grows, or reads it once: its summary, from its own boxes.
#include "Movie/MovieFollower.h"

#include <algorithm>

#include "Movie/BoxReader.h"
#include "Movie/FragmentSamples.h"
#include "Movie/MovieFile.h"
#include "Movie/MovieTracks.h"
#include "Movie/TimecodeTrack.h"
#include "Movie/TopLevelBoxes.h"
#include "Util/TimeCode.h"

namespace KTN {

namespace {

// What the summary needs of one track, besides its description.
struct TrackFacts {
  uint64_t samples = 0;
  uint64_t duration = 0;   // in timescale units: the end of its last sample
  uint32_t shortest = 0;   // the shortest sample duration
  // A timecode track's counting, as its description says, and first sample's place.
  Util::TimeCodeFormat timecodeFormat = Util::tcfUnknown;
  uint64_t firstChunk = 0;
  bool fieldOrder = false;  // a picture description that says its fields ('fiel')
};

void CountSample(TrackFacts& track, uint64_t start, uint32_t duration) {
  ++track.samples;
  track.duration = std::max(track.duration, start + duration);
  if (duration && (!track.shortest || duration < track.shortest)) track.shortest = duration;
}

// The sample table of a finished track: counts, durations, the first chunk and a timecode's entry.
void ReadSampleTable(const std::vector<uint8_t>& moov, const TrackDescription& described, TrackFacts& track) {
  std::vector<Box> tables;
  if (!described.stbl.size || !BoxReader::Children(moov, described.stbl, tables)) return;
  if (const Box* stsz = BoxReader::Find(tables, BoxTypes::kStsz)) {
    BoxReader sizes(moov, *stsz);
    sizes.Seek(8);  // version and flags, and the size every sample has when they all have one
    track.samples = sizes.U32();
  }
  if (const Box* stts = BoxReader::Find(tables, BoxTypes::kStts)) {
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
  for (uint32_t type : {BoxTypes::kStco, BoxTypes::kCo64}) {
    if (const Box* places = BoxReader::Find(tables, type)) {
      BoxReader chunks(moov, *places);
      chunks.Seek(4);
      if (chunks.U32() > 0) track.firstChunk = type == BoxTypes::kCo64 ? chunks.U64() : chunks.U32();
    }
  }
  const Box& stsd = described.stsd;
  std::vector<Box> entries;
  if (!stsd.size || stsd.size < stsd.header + kDescriptionsHeader ||
      !BoxReader::ChildBoxes(moov.data(), stsd.offset + stsd.header + kDescriptionsHeader, stsd.offset + stsd.size,
                             entries) ||
      entries.empty()) {
    return;
  }
  if (entries[0].type == BoxTypes::kTmcd) {
    uint32_t frameDuration = 0, timescale = 0;
    track.timecodeFormat = TimecodeTrack::ReadCounting(moov, entries[0], frameDuration, timescale);
  } else if (entries[0].size > kVisualEntryFields) {
    // A picture description's own boxes follow its fixed fields.
    std::vector<Box> extras;
    if (BoxReader::ChildBoxes(moov.data(), entries[0].offset + kVisualEntryFields, entries[0].offset + entries[0].size,
                              extras)) {
      track.fieldOrder = BoxReader::Find(extras, BoxTypes::kFiel) != nullptr;
    }
  }
}

}  // namespace

struct MovieFollower::Tracks : FragmentSamples::Visitor {
  MovieTracks described;
  std::vector<TrackFacts> facts;  // one for each described track
  // The last fragment read that added to a picture track: the writer lengthens that
  // picture in place while the slots after it have none, so its moof is read again.
  struct LastPicture {
    uint64_t offset = 0;
    uint64_t size = 0;    // 0: none
    uint64_t dataBegin = 0;  // its mdat's data
    uint64_t dataEnd = 0;
    size_t track = 0;     // in facts
    TrackFacts before;    // the track's facts before the fragment was added
  } lastPicture;
  // The tracks the fragment being read added to: the first, and whether there were others.
  int added = -1;
  bool several = false;

  uint64_t NextDecodeTime(size_t track) override { return facts[track].duration; }
  void Sample(const FragmentSample& sample) override {
    CountSample(facts[sample.track], sample.decodeTime, sample.duration);
    const int track = static_cast<int>(sample.track);
    if (added < 0) {
      added = track;
    } else if (added != track) {
      several = true;
    }
  }

  // Adds what the complete fragment whose moof (at offset) is in bytes, its mdat's data
  // in [dataBegin, dataEnd) of the file, holds. A fragment that cannot be described adds nothing: our writer
  // writes none, and what a take holds is counted from the fragments that can. The index
  // of the one track it added to, or -1 when it added to none or to several.
  int AddFragment(const std::vector<uint8_t>& moof, uint64_t offset, uint64_t dataBegin, uint64_t dataEnd) {
    added = -1;
    several = false;
    if (FragmentSamples::Walk(moof, offset, dataBegin, dataEnd, described, *this) != FragmentSamples::Status::kRead) {
      return -1;
    }
    return several ? -1 : added;
  }
};

MovieFollower::MovieFollower(const std::string& path) : mPath(path), mTracks(new Tracks) {}

MovieFollower::~MovieFollower() = default;

long MovieFollower::Update() {
  MovieFile file(mPath);
  if (long rc = file.Open(false)) return rc;
  TopLevelBoxes walk;
  if (mNext) {
    // Only what was written since: complete fragments; anything else (the index of a
    // finish) is read from the start again.
    if (long rc = walk.Read(file, mNext)) return rc;
    bool onlyFragments = true;
    for (const Box& box : walk.boxes) {
      onlyFragments = onlyFragments && (box.type == BoxTypes::kMoof || box.type == BoxTypes::kMdat);
    }
    if (onlyFragments) {
      if (long rc = ReadLastPictureAgain(file)) return rc;
      return ReadFragments(file, walk.boxes);
    }
    mNext = 0;
  }
  mTracks->described = MovieTracks();
  mTracks->facts.clear();
  mTracks->lastPicture = Tracks::LastPicture();
  mSummary = MovieSummary();
  if (long rc = walk.Read(file)) return rc;
  const std::vector<Box>& top = walk.boxes;
  const Box* movieHeader = nullptr;
  for (const Box& box : top) {
    if (box.type == BoxTypes::kMoov) movieHeader = &box;
  }
  if (!movieHeader) return 0;  // not a movie
  // The last movie header describes the most: the index a finish wrote after the samples,
  // or the only one there is.
  std::vector<uint8_t> moov;
  if (long rc = file.Read(movieHeader->offset, movieHeader->size, moov)) return rc;
  Box whole = *movieHeader;
  whole.offset = 0;
  if (!mTracks->described.Read(moov, whole)) return 0;
  mTracks->facts.assign(mTracks->described.tracks.size(), TrackFacts());
  bool anySample = false;
  for (size_t i = 0; i < mTracks->facts.size(); ++i) {
    ReadSampleTable(moov, mTracks->described.tracks[i], mTracks->facts[i]);
    anySample = anySample || mTracks->facts[i].samples > 0;
  }
  if (walk.Count(BoxTypes::kMoov) > 1) {
    mSummary.layout = MovieSummary::Layout::kFinishCut;
  } else if (walk.Count(BoxTypes::kMoof) > 0 || !anySample) {
    // A take being written, cut off, or not begun: its samples are in the fragments after
    // the (sample-less) movie header, which later updates follow.
    mSummary.layout = MovieSummary::Layout::kFragments;
    std::vector<Box> after;
    for (const Box& box : top) {
      if (box.offset > movieHeader->offset) after.push_back(box);
    }
    mNext = movieHeader->offset + movieHeader->size;
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
    if (boxes[i].type != BoxTypes::kMoof || boxes[i + 1].type != BoxTypes::kMdat) continue;
    if (long rc = file.Read(boxes[i].offset, boxes[i].size, moof)) return rc;
    const std::vector<TrackFacts> before = mTracks->facts;
    const Box& mdat = boxes[i + 1];
    const uint64_t dataBegin = mdat.offset + mdat.header, dataEnd = mdat.offset + mdat.size;
    const int added = mTracks->AddFragment(moof, boxes[i].offset, dataBegin, dataEnd);
    if (added < 0 || mTracks->described.tracks[static_cast<size_t>(added)].handler == Handlers::kPicture) {
      // Unless it is known to hold no picture, this fragment ends the last picture's run.
      mTracks->lastPicture = Tracks::LastPicture();
      if (added >= 0) {
        const size_t track = static_cast<size_t>(added);
        mTracks->lastPicture = {boxes[i].offset, boxes[i].size, dataBegin, dataEnd, track, before[track]};
      }
    }
    mNext = dataEnd;
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
  if (box.U32() != last.size || box.U32() != BoxTypes::kMoof) {
    last = Tracks::LastPicture();  // hidden by a finish (or cut off), which an update reads whole
    return 0;
  }
  // The fragment is added again to the track as it was before it, so the picture counts
  // once and its end is the one written now (a read that met the rewrite halfway is set
  // right by the next). Its first duration stays the track's frame measure: a lengthened
  // one is not a frame's. A header that no longer reads leaves the count as it was.
  TrackFacts& track = mTracks->facts[last.track];
  const TrackFacts now = track;
  track = last.before;
  if (mTracks->AddFragment(moof, last.offset, last.dataBegin, last.dataEnd) != static_cast<int>(last.track)) {
    track = now;
    return 0;
  }
  track.shortest = now.shortest;
  return 0;
}

long MovieFollower::Summarise(MovieFile& file) {
  MovieSummary::Layout layout = mSummary.layout;
  mSummary = MovieSummary();
  mSummary.layout = layout;
  for (size_t i = 0; i < mTracks->facts.size(); ++i) {
    const TrackDescription& described = mTracks->described.tracks[i];
    const TrackFacts& track = mTracks->facts[i];
    if (described.handler == Handlers::kPicture && !mSummary.videoTimescale) {
      mSummary.pictures = track.samples;
      mSummary.videoTimescale = described.timescale;
      mSummary.frameDuration = track.shortest;
      mSummary.pictureSlots = track.shortest ? (track.duration + track.shortest - 1) / track.shortest : 0;
      mSummary.hasFieldOrder = track.fieldOrder;
    } else if (described.handler == Handlers::kSound && !mSummary.soundRate) {
      mSummary.soundRate = described.timescale;
      mSummary.soundFrames = track.duration;
    } else if (described.handler == Handlers::kTimecode && !mSummary.hasTimecode && track.firstChunk &&
               track.timecodeFormat != Util::tcfUnknown) {
      std::vector<uint8_t> sample;
      if (file.Read(track.firstChunk, 4, sample) != 0) continue;
      BoxReader value(sample.data(), sample.size());
      Util::CTimeCode start =
          Util::CTimeCode::FromFrame(track.timecodeFormat, static_cast<int>(value.U32()), Util::tcfUnknown);
      mSummary.startTimecode = start.ToString(false);
      mSummary.hasTimecode = true;
    }
  }
  return 0;
}

}  // namespace KTN
