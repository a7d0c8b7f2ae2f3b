// Stamps the field order and the timecode track into a finished movie, in place.
#include "Movie/MovieStamp.h"

#include <errno.h>

#include <vector>

#include "Movie/BoxReader.h"
#include "Movie/BoxWriter.h"
#include "Movie/MovieFile.h"
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

// The handler type of a trak ('vide', 'soun', 'tmcd'), or 0.
uint32_t HandlerOf(const std::vector<uint8_t>& moov, const Box& trak) {
  std::vector<Box> inner, media;
  if (!BoxReader::Children(moov, trak, inner)) return 0;
  const Box* mdia = BoxReader::Find(inner, BoxType("mdia"));
  if (!mdia || !BoxReader::Children(moov, *mdia, media)) return 0;
  const Box* hdlr = BoxReader::Find(media, BoxType("hdlr"));
  if (!hdlr) return 0;
  BoxReader handler(moov, *hdlr);
  handler.Seek(8);
  return handler.U32();
}

// The fiel box's two bytes for an order.
void PutFields(BoxWriter& out, MovieStamp::Fields fields) {
  size_t fiel = out.Begin(BoxType("fiel"));
  switch (fields) {
    case MovieStamp::Fields::kTopFirst: out.Put8(2), out.Put8(1); break;
    case MovieStamp::Fields::kBottomFirst: out.Put8(2), out.Put8(6); break;
    default: out.Put8(1), out.Put8(0); break;
  }
  out.End(fiel);
}

// Copies the sample table's stsd with fiel added to its first description where that has
// none; false when the table is not one to stamp.
bool WriteStsdWithFields(BoxWriter& out, const std::vector<uint8_t>& moov, const Box& stsd, MovieStamp::Fields fields) {
  std::vector<Box> entries;
  if (stsd.size < stsd.header + 8 ||
      !BoxReader::ChildBoxes(moov.data(), stsd.offset + stsd.header + 8, stsd.offset + stsd.size, entries) ||
      entries.empty() || entries[0].size < kVisualEntryFields) {
    return false;
  }
  size_t start = out.Begin(BoxType("stsd"));
  out.Put(moov.data() + stsd.offset + stsd.header, 8);  // version, flags and count
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
      hasFields = hasFields || extra.type == BoxType("fiel");
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
    if (child.type == BoxType("minf") || child.type == BoxType("stbl")) {
      ok = WriteTowardsStsd(out, moov, child, fields);
    } else if (child.type == BoxType("stsd")) {
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
  size_t start = out.Begin(BoxType("trak"));
  for (const Box& child : children) {
    if (child.type == BoxType("tref")) continue;  // written again below, with the timecode's
    if (child.type == BoxType("mdia") && fields != MovieStamp::Fields::kKeep) {
      if (!WriteTowardsStsd(out, moov, child, fields)) return false;
    } else {
      Copy(out, moov, child);
    }
    if (child.type != BoxType("tkhd")) continue;
    // After the track header: its references, those it had (but the timecode's when it is
    // stamped again), and ours.
    std::vector<Box> references;
    if (const Box* tref = BoxReader::Find(children, BoxType("tref"))) {
      if (!BoxReader::Children(moov, *tref, references)) return false;
    }
    std::vector<Box> kept;
    for (const Box& reference : references) {
      if (reference.type != BoxType("tmcd") || !timecodeId) kept.push_back(reference);
    }
    if (kept.empty() && !timecodeId) continue;
    size_t tref = out.Begin(BoxType("tref"));
    for (const Box& reference : kept) Copy(out, moov, reference);
    if (timecodeId) {
      size_t tmcd = out.Begin(BoxType("tmcd"));
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
  MovieFile file(path);
  if (long rc = file.Open()) return rc;
  std::vector<Box> top;
  bool cut = false;
  if (long rc = file.TopLevelBoxes(top, &cut)) return rc;
  const Box* moovBox = nullptr;
  int movieHeaders = 0;
  for (const Box& box : top) {
    if (box.type == BoxType("moof")) return Refused(path, "it is still fragments; it is finished first");
    if (box.type == BoxType("moov")) {
      moovBox = &box;
      ++movieHeaders;
    }
  }
  if (cut || movieHeaders != 1) return Refused(path, "it is not a finished movie");
  std::vector<uint8_t> moov;
  if (long rc = file.Read(moovBox->offset, moovBox->size, moov)) return rc;
  Box whole;
  whole.size = moov.size();
  whole.header = moovBox->header;
  std::vector<Box> children;
  if (!BoxReader::Children(moov, whole, children)) return Refused(path, "its index cannot be read");

  uint32_t highestId = 0;
  const Box* picture = nullptr;
  for (const Box& child : children) {
    if (child.type != BoxType("trak")) continue;
    std::vector<Box> inner;
    if (!BoxReader::Children(moov, child, inner)) return Refused(path, "a track cannot be read");
    if (const Box* tkhd = BoxReader::Find(inner, BoxType("tkhd"))) {
      uint32_t id = BoxReader::FirstFieldAfterDates(moov, *tkhd);
      if (id > highestId) highestId = id;
    }
    if (!picture && HandlerOf(moov, child) == BoxType("vide")) picture = &child;
  }
  const Box* mvhd = BoxReader::Find(children, BoxType("mvhd"));
  if (!mvhd || !picture) return Refused(path, "it has no picture track");
  bool wide = false;
  const uint64_t afterDates = BoxReader::AfterDates(moov, *mvhd, wide);
  BoxReader header(moov.data() + mvhd->offset + afterDates, mvhd->size - afterDates);
  const uint32_t movieTimescale = header.U32();
  const uint64_t movieDuration = wide ? header.U64() : header.U32();
  // The next track ID sits after the rate, volume, reserved bytes, matrix and predefined fields.
  const uint64_t nextTrackAt = afterDates + 4 + (wide ? 8 : 4) + 4 + 2 + 10 + 36 + 24;
  if (!header.ok || nextTrackAt + 4 > mvhd->size) return Refused(path, "its movie header cannot be read");

  // The timecode's sample goes in an mdat of its own after the movie's last box, the new
  // index after it.
  const uint64_t sampleBox = file.Size();
  const uint32_t timecodeId = stampTimecode ? highestId + 1 : 0;
  BoxWriter out;
  if (stampTimecode) {
    out.Put32(12);
    out.Put32(BoxType("mdat"));
    out.Put32(timecode.FirstFrame());
  }
  size_t moovStart = out.Begin(BoxType("moov"));
  for (const Box& child : children) {
    if (child.type == BoxType("mvhd")) {
      size_t at = out.bytes.size();
      Copy(out, moov, child);
      if (stampTimecode) out.Patch32(at + nextTrackAt, timecodeId + 1);
    } else if (&child == picture) {
      if (!WritePictureTrak(out, moov, child, fields, timecodeId)) return Refused(path, "its picture track cannot be read");
    } else if (stampTimecode && child.type == BoxType("trak") && HandlerOf(moov, child) == BoxType("tmcd")) {
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
  if (long rc = file.Hide(moovBox->offset)) return rc;
  return file.Sync();
}

}  // namespace KTN
