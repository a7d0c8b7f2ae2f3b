// A movie's timecode track.
#include "Movie/TimecodeTrack.h"

#include "Movie/BoxReader.h"

namespace KTN {

namespace {

// The flags of a timecode's sample description.
constexpr uint32_t kTimecodeDropFrame = 0x0001;
constexpr uint32_t kTimecode24HourMax = 0x0002;

// A QuickTime counted string.
void PutPascal(BoxWriter& out, const char* text) {
  size_t length = 0;
  while (text[length]) ++length;
  out.Put8(static_cast<uint8_t>(length));
  out.Put(reinterpret_cast<const uint8_t*>(text), length);
}

void PutIdentityMatrix(BoxWriter& out) {
  const uint32_t matrix[9] = {0x00010000, 0, 0, 0, 0x00010000, 0, 0, 0, 0x40000000};
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
  if (!CountableRate(frameDuration, timescale)) return false;
  if (text.size() != 11 || text[2] != ':' || text[5] != ':' || (text[8] != ':' && text[8] != ';')) return false;
  for (size_t i : {0, 1, 3, 4, 6, 7, 9, 10}) {
    if (text[i] < '0' || text[i] > '9') return false;
  }
  const Util::TimeCodeFormat format = Util::tcfFromDuration(frameDuration, timescale, dropFrame, -1);
  mDropFrame = Util::tcfIsDrop(format);
  Util::tcfToDuration(format, mFrameDuration, mTimescale);
  mFramesPerSecond = static_cast<uint32_t>(Util::tcfToTps(format));
  Util::CTimeCode start = Util::CTimeCode::FromStr(format, text);
  if (start.frames >= mFramesPerSecond || start.seconds > 59 || start.minutes > 59 || start.hours > 23) return false;
  mFirstFrame = static_cast<uint32_t>(start.ToFrame(format));
  return true;
}

void TimecodeTrack::WriteTrak(BoxWriter& out, uint32_t trackId, uint64_t movieDuration, uint32_t movieTimescale,
                              uint64_t sampleOffset) const {
  const uint64_t mediaDuration = movieTimescale ? movieDuration * mTimescale / movieTimescale : 0;
  const bool wide = movieDuration > UINT32_MAX || mediaDuration > UINT32_MAX;
  size_t trak = out.Begin(BoxType("trak"));

  size_t tkhd = out.Begin(BoxType("tkhd"));
  out.Put32(wide ? 0x01000000 : 0);  // not enabled: a timecode is read, not shown
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

  size_t edts = out.Begin(BoxType("edts"));
  size_t elst = out.Begin(BoxType("elst"));
  out.Put32(wide ? 0x01000000 : 0);
  out.Put32(1);
  if (wide) {
    out.Put64(movieDuration), out.Put64(0);
  } else {
    out.Put32(static_cast<uint32_t>(movieDuration)), out.Put32(0);
  }
  out.Put32(0x00010000);
  out.End(elst);
  out.End(edts);

  size_t mdia = out.Begin(BoxType("mdia"));
  size_t mdhd = out.Begin(BoxType("mdhd"));
  out.Put32(wide ? 0x01000000 : 0);
  if (wide) {
    out.Put64(0), out.Put64(0), out.Put32(mTimescale), out.Put64(mediaDuration);
  } else {
    out.Put32(0), out.Put32(0), out.Put32(mTimescale), out.Put32(static_cast<uint32_t>(mediaDuration));
  }
  out.Put16(0x7FFF);  // no language
  out.Put16(0);
  out.End(mdhd);
  size_t hdlr = out.Begin(BoxType("hdlr"));
  out.Put32(0);
  out.Put32(BoxType("mhlr"));
  out.Put32(BoxType("tmcd"));
  out.Put32(0), out.Put32(0), out.Put32(0);
  PutPascal(out, "TimeCodeHandler");
  out.End(hdlr);

  size_t minf = out.Begin(BoxType("minf"));
  size_t gmhd = out.Begin(BoxType("gmhd"));
  size_t gmin = out.Begin(BoxType("gmin"));
  out.Put32(0);
  out.Put16(0x0040);  // graphics mode: copy
  out.Put16(0x8000), out.Put16(0x8000), out.Put16(0x8000);
  out.Put16(0), out.Put16(0);
  out.End(gmin);
  size_t tmcd = out.Begin(BoxType("tmcd"));
  size_t tcmi = out.Begin(BoxType("tcmi"));
  out.Put32(0);
  out.Put16(0), out.Put16(0), out.Put16(12), out.Put16(0);  // font, face, size, reserved
  out.Put16(0), out.Put16(0), out.Put16(0);                 // black text
  out.Put16(0xFFFF), out.Put16(0xFFFF), out.Put16(0xFFFF);  // on white
  PutPascal(out, "");
  out.End(tcmi);
  out.End(tmcd);
  out.End(gmhd);
  size_t dinf = out.Begin(BoxType("dinf"));
  size_t dref = out.Begin(BoxType("dref"));
  out.Put32(0);
  out.Put32(1);
  size_t alis = out.Begin(BoxType("alis"));
  out.Put32(1);  // the data is in this file
  out.End(alis);
  out.End(dref);
  out.End(dinf);

  size_t stbl = out.Begin(BoxType("stbl"));
  size_t stsd = out.Begin(BoxType("stsd"));
  out.Put32(0);
  out.Put32(1);
  size_t entry = out.Begin(BoxType("tmcd"));
  out.Put32(0), out.Put16(0);  // reserved
  out.Put16(1);                // data reference index
  out.Put32(0);                // reserved
  out.Put32((mDropFrame ? kTimecodeDropFrame : 0) | kTimecode24HourMax);
  out.Put32(mTimescale);
  out.Put32(mFrameDuration);
  out.Put8(static_cast<uint8_t>(mFramesPerSecond));
  out.Put8(0);
  out.End(entry);
  out.End(stsd);
  size_t stts = out.Begin(BoxType("stts"));
  out.Put32(0), out.Put32(1), out.Put32(1);
  out.Put32(static_cast<uint32_t>(mediaDuration > UINT32_MAX ? UINT32_MAX : mediaDuration));
  out.End(stts);
  size_t stsc = out.Begin(BoxType("stsc"));
  out.Put32(0), out.Put32(1), out.Put32(1), out.Put32(1), out.Put32(1);
  out.End(stsc);
  size_t stsz = out.Begin(BoxType("stsz"));
  out.Put32(0), out.Put32(4), out.Put32(1);
  out.End(stsz);
  size_t places = out.Begin(sampleOffset > UINT32_MAX ? BoxType("co64") : BoxType("stco"));
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

}  // namespace KTN
