// A movie's timecode track.
#include "Movie/TimecodeTrack.h"

#include "Movie/BoxFlags.h"
#include "Movie/EditList.h"

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
  out.Put32((mDropFrame ? TimecodeFlags::kDropFrame : 0) | TimecodeFlags::k24HourMax);
  out.Put32(mTimescale);
  out.Put32(mFrameDuration);
  out.Put8(static_cast<uint8_t>(mFramesPerSecond));
  out.Put8(0);
  out.End(entry);
  out.End(stsd);
  size_t stts = out.Begin(BoxTypes::kStts);
  out.Put32(0), out.Put32(1), out.Put32(1);
  out.Put32(static_cast<uint32_t>(mediaDuration > UINT32_MAX ? UINT32_MAX : mediaDuration));
  out.End(stts);
  size_t stsc = out.Begin(BoxTypes::kStsc);
  out.Put32(0), out.Put32(1), out.Put32(1), out.Put32(1), out.Put32(1);
  out.End(stsc);
  size_t stsz = out.Begin(BoxTypes::kStsz);
  out.Put32(0), out.Put32(4), out.Put32(1);
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

}  // namespace KTN
