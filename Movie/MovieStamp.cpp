// Stamps the field order and the timecode track into a finished movie, in place.
#include "Movie/MovieStamp.h"

#include <errno.h>

#include <algorithm>
#include <vector>

#include "Movie/BoxReader.h"
#include "Movie/BoxWriter.h"
#include "Movie/MovieFile.h"
#include "Movie/MovieTracks.h"
#include "Movie/TopLevelBoxes.h"
#include "Movie/TimecodeTrack.h"
#include "Util/Log.h"

namespace KTN {

namespace {

long Refused(const std::string& path, const char* why) {
  KTN_LOG("The movie %s cannot be stamped: %s", path.c_str(), why);
  return EOPNOTSUPP;
}

void Copy(BoxWriter& out, const std::vector<uint8_t>& bytes, const Box& box) {
  out.Put(bytes.data() + box.offset, box.size);
}

// The fiel box's two bytes for an order.
void PutFields(BoxWriter& out, MovieStamp::Fields fields) {
  size_t fiel = out.Begin(BoxTypes::kFiel);
  switch (fields) {
    case MovieStamp::Fields::kTopFirst: out.Put8(FieldOrder::kTwoFields), out.Put8(FieldOrder::kTopFirst); break;
    case MovieStamp::Fields::kBottomFirst: out.Put8(FieldOrder::kTwoFields), out.Put8(FieldOrder::kBottomFirst); break;
    default: out.Put8(FieldOrder::kOneField), out.Put8(0); break;
  }
  out.End(fiel);
}

// Copies the sample table's stsd with fiel added to its first description where that has
// none; false when the table is not one to stamp.
bool WriteStsdWithFields(BoxWriter& out, const std::vector<uint8_t>& moov, const Box& stsd, MovieStamp::Fields fields) {
  std::vector<Box> entries;
  if (stsd.size < stsd.header + kDescriptionsHeader ||
      !BoxReader::ChildBoxes(moov.data(), stsd.offset + stsd.header + kDescriptionsHeader, stsd.offset + stsd.size,
                             entries) ||
      entries.empty() || entries[0].size < kVisualEntryFields) {
    return false;
  }
  size_t start = out.Begin(BoxTypes::kStsd);
  out.Put(moov.data() + stsd.offset + stsd.header, kDescriptionsHeader);
  for (size_t i = 0; i < entries.size(); ++i) {
    const Box& entry = entries[i];
    std::vector<Box> extras;
    if (i > 0 || !BoxReader::ChildBoxes(moov.data(), entry.offset + kVisualEntryFields, entry.offset + entry.size, extras)) {
      Copy(out, moov, entry);
      continue;
    }
    size_t described = out.bytes.size();
    out.Put(moov.data() + entry.offset, kVisualEntryFields);
    bool hasFields = false;
    for (const Box& extra : extras) {
      Copy(out, moov, extra);
      hasFields = hasFields || extra.type == BoxTypes::kFiel;
    }
    if (!hasFields) PutFields(out, fields);
    out.End(described);
  }
  return out.End(start);
}

// Copies box, a parent along the way to the picture track's stsd (mdia, minf, stbl), with
// the stsd stamped.
bool WriteTowardsStsd(BoxWriter& out, const std::vector<uint8_t>& moov, const Box& box, MovieStamp::Fields fields) {
  std::vector<Box> children;
  if (!BoxReader::Children(moov, box, children)) return false;
  size_t start = out.Begin(box.type);
  for (const Box& child : children) {
    bool ok = true;
    if (child.type == BoxTypes::kMinf || child.type == BoxTypes::kStbl) {
      ok = WriteTowardsStsd(out, moov, child, fields);
    } else if (child.type == BoxTypes::kStsd) {
      ok = WriteStsdWithFields(out, moov, child, fields);
    } else {
      Copy(out, moov, child);
    }
    if (!ok) return false;
  }
  return out.End(start);
}

// The picture track with its field order and its reference to the timecode track: to
// timecodeId, or, when 0, the one it had (the timecode is not stamped again).
bool WritePictureTrak(BoxWriter& out, const std::vector<uint8_t>& moov, const Box& trak, MovieStamp::Fields fields,
                      uint32_t timecodeId) {
  std::vector<Box> children;
  if (!BoxReader::Children(moov, trak, children)) return false;
  size_t start = out.Begin(BoxTypes::kTrak);
  for (const Box& child : children) {
    if (child.type == BoxTypes::kTref) continue;  // written again below, with the timecode's
    if (child.type == BoxTypes::kMdia && fields != MovieStamp::Fields::kKeep) {
      if (!WriteTowardsStsd(out, moov, child, fields)) return false;
    } else {
      Copy(out, moov, child);
    }
    if (child.type != BoxTypes::kTkhd) continue;
    // After the track header: its references, those it had (but the timecode's when it is
    // stamped again), and ours.
    std::vector<Box> references;
    if (const Box* tref = BoxReader::Find(children, BoxTypes::kTref)) {
      if (!BoxReader::Children(moov, *tref, references)) return false;
    }
    std::vector<Box> kept;
    for (const Box& reference : references) {
      if (reference.type != BoxTypes::kTmcd || !timecodeId) kept.push_back(reference);
    }
    if (kept.empty() && !timecodeId) continue;
    size_t tref = out.Begin(BoxTypes::kTref);
    for (const Box& reference : kept) Copy(out, moov, reference);
    if (timecodeId) {
      size_t tmcd = out.Begin(BoxTypes::kTmcd);
      out.Put32(timecodeId);
      out.End(tmcd);
    }
    out.End(tref);
  }
  return out.End(start);
}

}  // namespace

long MovieStamp::Apply(const std::string& path) const {
  TimecodeTrack timecode;
  const bool stampTimecode = !startTimecode.empty();
  if (stampTimecode &&
      !timecode.Set(frameDuration, timescale, startTimecode.size() > 8 && startTimecode[8] == ';', startTimecode)) {
    return Refused(path, "its timecode cannot be counted at its rate");
  }
  if (stampTimecode) {
    for (const TimecodeRun& run : timecodeBreaks) {
      if (!timecode.AddRun(run.slot, run.text)) {
        KTN_LOG("The timecode break at slot %lld (%s) of %s is left out: it cannot be counted there",
                static_cast<long long>(run.slot), run.text.c_str(), path.c_str());
      }
    }
  }
  MovieFile file(path);
  if (long rc = file.Open()) return rc;
  TopLevelBoxes top;
  if (long rc = top.Read(file)) return rc;
  if (top.Count(BoxTypes::kMoof)) return Refused(path, "it is still fragments; it is finished first");
  if (top.cut || top.Count(BoxTypes::kMoov) != 1) return Refused(path, "it is not a finished movie");
  std::vector<uint8_t> moov;
  Box whole;
  uint64_t moovAt = 0;
  if (long rc = top.ReadMovieBox(file, moov, whole, &moovAt)) return rc;
  std::vector<Box> children;
  MovieTracks tracks;
  if (!BoxReader::Children(moov, whole, children) || !tracks.Read(moov, whole)) {
    return Refused(path, "its index cannot be read");
  }
  uint32_t highestId = 0;
  const TrackDescription* picture = nullptr;
  for (const TrackDescription& track : tracks.tracks) {
    if (!track.complete) return Refused(path, "a track cannot be read");
    highestId = std::max(highestId, track.id);
    if (!picture && track.handler == Handlers::kPicture) picture = &track;
  }
  const Box* mvhd = BoxReader::Find(children, BoxTypes::kMvhd);
  if (!mvhd || !picture) return Refused(path, "it has no picture track");
  HeaderFields header;
  if (!BoxReader::ReadHeaderFields(moov, *mvhd, header)) return Refused(path, "its movie header cannot be read");
  const uint32_t movieTimescale = header.first;
  const uint64_t movieDuration = header.duration;
  const uint64_t nextTrackAt = header.durationAt + (header.wide ? 8 : 4) + kMvhdAfterDurationToNextTrack;
  if (nextTrackAt + 4 > mvhd->size) return Refused(path, "its movie header cannot be read");

  // The timecode's samples go in an mdat of their own after the movie's last box, the new
  // index after it.
  const uint64_t sampleBox = file.Size();
  const uint32_t timecodeId = stampTimecode ? highestId + 1 : 0;
  BoxWriter out;
  if (stampTimecode) {
    timecode.EndAt(movieDuration, movieTimescale);
    out.Put32(static_cast<uint32_t>(8 + 4 * timecode.Samples()));
    out.Put32(BoxTypes::kMdat);
    timecode.WriteSamples(out);
  }
  size_t moovStart = out.Begin(BoxTypes::kMoov);
  for (const Box& child : children) {
    if (&child == mvhd) {
      // The header read above (a second one, which readers ignore, is copied as it is).
      size_t at = out.bytes.size();
      Copy(out, moov, child);
      if (stampTimecode) out.Patch32(at + nextTrackAt, timecodeId + 1);
    } else if (child.type == BoxTypes::kTrak && tracks.ForTrak(child) == picture) {
      if (!WritePictureTrak(out, moov, child, fields, timecodeId)) return Refused(path, "its picture track cannot be read");
    } else if (stampTimecode && child.type == BoxTypes::kTrak && tracks.ForTrak(child)->handler == Handlers::kTimecode) {
      continue;  // an earlier timecode, replaced
    } else {
      Copy(out, moov, child);
    }
  }
  if (stampTimecode) timecode.WriteTrak(out, timecodeId, movieDuration, movieTimescale, sampleBox + 8);
  if (!out.End(moovStart)) return Refused(path, "its index would not fit its boxes");

  // The new index is on the disk before the old one is hidden: until then readers take the
  // old one (the first they find), afterwards the new.
  if (long rc = file.Write(sampleBox, out.bytes.data(), out.bytes.size())) {
    file.Truncate(sampleBox);
    return rc;
  }
  if (long rc = file.Sync()) return rc;
  if (long rc = file.Hide(moovAt)) return rc;
  return file.Sync();
}

}  // namespace KTN
