// A movie's timecode track.
#include "Movie/TimecodeTrack.h"

#include <errno.h>

#include "Movie/BoxFlags.h"
#include "Movie/BoxReader.h"
#include "Movie/EditList.h"
#include "Movie/MovieFile.h"
#include "Movie/MovieTracks.h"
#include "Movie/SampleTable.h"
#include "Movie/TopLevelBoxes.h"
#include "Util/Log.h"
#include "Util/TimecodeText.h"

namespace KTN {

namespace {

// A QuickTime counted string.
void PutPascal(BoxWriter& out, const char* text) {
  size_t length = 0;
  while (text[length]) ++length;
  out.Put8(static_cast<uint8_t>(length));
  out.Put(reinterpret_cast<const uint8_t*>(text), length);
}

void PutIdentityMatrix(BoxWriter& out) {
  const uint32_t matrix[9] = {kFixedOne, 0, 0, 0, kFixedOne, 0, 0, 0, kMatrixOne};
  for (uint32_t value : matrix) out.Put32(value);
}

}  // namespace

bool TimecodeTrack::CountableRate(uint32_t frameDuration, uint32_t timescale) {
  if (!frameDuration || !timescale) return false;
  const double fps = static_cast<double>(timescale) / frameDuration;
  for (double known : {24000.0 / 1001, 24.0, 25.0, 30000.0 / 1001, 30.0, 50.0, 60000.0 / 1001, 60.0}) {
    if (fps > known - 0.005 && fps < known + 0.005) return true;
  }
  return false;
}

bool TimecodeTrack::Set(uint32_t frameDuration, uint32_t timescale, bool dropFrame, const std::string& text) {
  mRuns.clear();
  mFormat = Util::tcfUnknown;
  if (!CountableRate(frameDuration, timescale)) return false;
  const Util::TimeCodeFormat format = Util::tcfFromDuration(frameDuration, timescale, dropFrame, -1);
  const int64_t first = Util::TimecodeText::FrameAt(text, format);
  if (first < 0) return false;
  Util::tcfToDuration(format, mFrameDuration, mTimescale);
  mFormat = format;
  mRuns.push_back(Run{0, static_cast<uint32_t>(first)});
  return true;
}

bool TimecodeTrack::AddRun(int64_t slot, const std::string& text) {
  if (mRuns.empty() || slot <= mRuns.back().slot) return false;
  const int64_t frame = Util::TimecodeText::FrameAt(text, mFormat);
  if (frame < 0) return false;
  mRuns.push_back(Run{slot, static_cast<uint32_t>(frame)});
  return true;
}

void TimecodeTrack::EndAt(uint64_t movieDuration, uint32_t movieTimescale) {
  // The movie's length in whole slots: its header's duration may be rounded to its own
  // timescale's units.
  const uint64_t mediaDuration = MediaDuration(movieDuration, movieTimescale);
  const uint64_t slots = mFrameDuration ? (mediaDuration + mFrameDuration / 2) / mFrameDuration : 0;
  while (mRuns.size() > 1 && static_cast<uint64_t>(mRuns.back().slot) >= slots) {
    mRuns.pop_back();
  }
}

uint64_t TimecodeTrack::MediaDuration(uint64_t movieDuration, uint32_t movieTimescale) const {
  return movieTimescale ? movieDuration * mTimescale / movieTimescale : 0;
}

void TimecodeTrack::WriteSamples(BoxWriter& out) const {
  for (const Run& run : mRuns) out.Put32(run.frame);
}

void TimecodeTrack::WriteTrak(BoxWriter& out, uint32_t trackId, uint64_t movieDuration, uint32_t movieTimescale,
                              uint64_t sampleOffset) const {
  const uint64_t mediaDuration = MediaDuration(movieDuration, movieTimescale);
  const bool wide = movieDuration > UINT32_MAX || mediaDuration > UINT32_MAX;
  size_t trak = out.Begin(BoxTypes::kTrak);

  size_t tkhd = out.Begin(BoxTypes::kTkhd);
  out.Put32(FullBoxWord(wide ? 1 : 0, 0));  // no TkhdFlags: a timecode is read, not shown
  if (wide) {
    out.Put64(0), out.Put64(0);
  } else {
    out.Put32(0), out.Put32(0);
  }
  out.Put32(trackId);
  out.Put32(0);
  if (wide) {
    out.Put64(movieDuration);
  } else {
    out.Put32(static_cast<uint32_t>(movieDuration));
  }
  out.Put32(0), out.Put32(0);  // reserved
  out.Put16(0), out.Put16(0), out.Put16(0), out.Put16(0);  // layer, alternate group, volume, reserved
  PutIdentityMatrix(out);
  out.Put32(0), out.Put32(0);  // no picture of its own
  out.End(tkhd);

  EditList::Write(out, movieDuration);

  size_t mdia = out.Begin(BoxTypes::kMdia);
  size_t mdhd = out.Begin(BoxTypes::kMdhd);
  out.Put32(FullBoxWord(wide ? 1 : 0, 0));
  if (wide) {
    out.Put64(0), out.Put64(0), out.Put32(mTimescale), out.Put64(mediaDuration);
  } else {
    out.Put32(0), out.Put32(0), out.Put32(mTimescale), out.Put32(static_cast<uint32_t>(mediaDuration));
  }
  out.Put16(0x7FFF);  // no language
  out.Put16(0);
  out.End(mdhd);
  size_t hdlr = out.Begin(BoxTypes::kHdlr);
  out.Put32(0);
  out.Put32(Handlers::kMediaHandler);
  out.Put32(Handlers::kTimecode);
  out.Put32(0), out.Put32(0), out.Put32(0);
  PutPascal(out, "TimeCodeHandler");
  out.End(hdlr);

  size_t minf = out.Begin(BoxTypes::kMinf);
  size_t gmhd = out.Begin(BoxTypes::kGmhd);
  size_t gmin = out.Begin(BoxTypes::kGmin);
  out.Put32(0);
  out.Put16(0x0040);  // graphics mode: copy
  out.Put16(0x8000), out.Put16(0x8000), out.Put16(0x8000);
  out.Put16(0), out.Put16(0);
  out.End(gmin);
  size_t tmcd = out.Begin(BoxTypes::kTmcd);
  size_t tcmi = out.Begin(BoxTypes::kTcmi);
  out.Put32(0);
  out.Put16(0), out.Put16(0), out.Put16(12), out.Put16(0);  // font, face, size, reserved
  out.Put16(0), out.Put16(0), out.Put16(0);                 // black text
  out.Put16(0xFFFF), out.Put16(0xFFFF), out.Put16(0xFFFF);  // on white
  PutPascal(out, "");
  out.End(tcmi);
  out.End(tmcd);
  out.End(gmhd);
  size_t dinf = out.Begin(BoxTypes::kDinf);
  size_t dref = out.Begin(BoxTypes::kDref);
  out.Put32(0);
  out.Put32(1);
  size_t alis = out.Begin(BoxTypes::kAlis);
  out.Put32(kDataInThisFile);
  out.End(alis);
  out.End(dref);
  out.End(dinf);

  size_t stbl = out.Begin(BoxTypes::kStbl);
  size_t stsd = out.Begin(BoxTypes::kStsd);
  out.Put32(0);
  out.Put32(1);
  size_t entry = out.Begin(BoxTypes::kTmcd);
  out.Put32(0), out.Put16(0);  // reserved
  out.Put16(1);                // data reference index
  out.Put32(0);                // reserved
  out.Put32((Util::tcfIsDrop(mFormat) ? TimecodeFlags::kDropFrame : 0) | TimecodeFlags::k24HourMax);
  out.Put32(mTimescale);
  out.Put32(mFrameDuration);
  out.Put8(static_cast<uint8_t>(Util::tcfToTps(mFormat)));
  out.Put8(0);
  out.End(entry);
  out.End(stsd);
  // Each run lasts until the next begins, the last to the movie's end.
  const uint32_t samples = static_cast<uint32_t>(mRuns.size());
  size_t stts = out.Begin(BoxTypes::kStts);
  out.Put32(0), out.Put32(samples);
  for (size_t i = 0; i < mRuns.size(); ++i) {
    const uint64_t begin = static_cast<uint64_t>(mRuns[i].slot) * mFrameDuration;
    const uint64_t end = i + 1 < mRuns.size() ? static_cast<uint64_t>(mRuns[i + 1].slot) * mFrameDuration : mediaDuration;
    const uint64_t length = end > begin ? end - begin : 0;
    out.Put32(1);
    out.Put32(static_cast<uint32_t>(length > UINT32_MAX ? UINT32_MAX : length));
  }
  out.End(stts);
  size_t stsc = out.Begin(BoxTypes::kStsc);
  out.Put32(0), out.Put32(1), out.Put32(1), out.Put32(samples), out.Put32(1);
  out.End(stsc);
  size_t stsz = out.Begin(BoxTypes::kStsz);
  out.Put32(0), out.Put32(4), out.Put32(samples);
  out.End(stsz);
  size_t places = out.Begin(sampleOffset > UINT32_MAX ? BoxTypes::kCo64 : BoxTypes::kStco);
  out.Put32(0), out.Put32(1);
  if (sampleOffset > UINT32_MAX) {
    out.Put64(sampleOffset);
  } else {
    out.Put32(static_cast<uint32_t>(sampleOffset));
  }
  out.End(places);
  out.End(stbl);
  out.End(minf);
  out.End(mdia);
  out.End(trak);
}

Util::TimeCodeFormat TimecodeTrack::ReadCounting(const std::vector<uint8_t>& moov, const Box& entry,
                                                uint32_t& frameDuration, uint32_t& timescale) {
  BoxReader fields(moov, entry);
  fields.Seek(kTimecodeFlagsAt);
  const uint32_t flags = fields.U32();
  timescale = fields.U32();
  frameDuration = fields.U32();
  if (!fields.ok || !CountableRate(frameDuration, timescale)) return Util::tcfUnknown;
  return Util::tcfFromDuration(frameDuration, timescale, (flags & TimecodeFlags::kDropFrame) != 0, -1);
}

long TimecodeTrack::ReadRuns(const std::string& path, std::vector<TimecodeRun>& runs) {
  runs.clear();
  auto refused = [&path](const char* why) {
    KTN_LOG("The timecode of %s cannot be read: %s", path.c_str(), why);
    return static_cast<long>(EOPNOTSUPP);
  };
  MovieFile file(path);
  if (long rc = file.Open(false)) return rc;
  TopLevelBoxes top;
  if (long rc = top.Read(file)) return rc;
  if (top.cut || top.Unfinished() || top.Count(BoxTypes::kMoov) != 1) return refused("it is not a finished movie");
  std::vector<uint8_t> moov;
  Box whole;
  if (long rc = top.ReadMovieBox(file, moov, whole)) return rc;
  MovieTracks tracks;
  if (!tracks.Read(moov, whole)) return refused("its index cannot be read");
  const TrackDescription* track = nullptr;
  for (const TrackDescription& each : tracks.tracks) {
    if (each.complete && each.handler == Handlers::kTimecode) {
      track = &each;
      break;
    }
  }
  if (!track) return 0;
  // The description says how the samples count: drop frame, timescale, frame duration.
  std::vector<Box> entries;
  const Box& stsd = track->stsd;
  if (stsd.size < stsd.header + kDescriptionsHeader ||
      !BoxReader::ChildBoxes(moov.data(), stsd.offset + stsd.header + kDescriptionsHeader, stsd.offset + stsd.size,
                             entries) ||
      entries.empty() || entries[0].type != BoxTypes::kTmcd) {
    return refused("its timecode track has no timecode description");
  }
  uint32_t frameDuration = 0, timescale = 0;
  const Util::TimeCodeFormat format = ReadCounting(moov, entries[0], frameDuration, timescale);
  if (format == Util::tcfUnknown) return refused("its timecode's rate cannot be counted");
  // The track's samples are counted in its media's timescale, which may differ from the description's.
  const uint64_t slotLength = track->timescale ? static_cast<uint64_t>(frameDuration) * track->timescale / timescale : 0;
  SampleTable table;
  if (!slotLength || !table.Read(moov, *track)) return refused("its timecode track's samples cannot be read");
  long failed = 0;
  table.Walk([&](const TableSample& sample) {
    std::vector<uint8_t> bytes;
    if (sample.size != 4) {
      failed = refused("a timecode sample is not 4 bytes");
      return false;
    }
    if ((failed = file.Read(sample.offset, 4, bytes))) return false;
    BoxReader fields(bytes.data(), bytes.size());
    const uint32_t frame = fields.U32();
    TimecodeRun run;
    run.slot = static_cast<int64_t>(sample.decodeTime / slotLength);
    run.text = Util::CTimeCode::FromFrame(format, static_cast<int>(frame), format).ToString(false);
    runs.push_back(run);
    return true;
  });
  if (failed) runs.clear();
  return failed;
}

}  // namespace KTN
