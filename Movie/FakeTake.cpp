// Test support: a take built box by box.
#include "Movie/FakeTake.h"

#include <fcntl.h>
#include <unistd.h>

#include <fstream>

#include "Movie/BoxFlags.h"
#include "Movie/BoxWriter.h"

namespace KTN {

namespace {

void PutMatrix(BoxWriter& out) {
  for (uint32_t value : {kFixedOne, 0u, 0u, 0u, kFixedOne, 0u, 0u, 0u, kMatrixOne}) out.Put32(value);
}

// A version word and the two dates of a header box.
void PutDates(BoxWriter& out, bool wide, uint32_t flags) {
  out.Put32(FullBoxWord(wide ? 1 : 0, flags));
  for (int i = 0; i < 2; ++i) wide ? out.Put64(0) : out.Put32(0);
}

void PutDuration(BoxWriter& out, bool wide) { wide ? out.Put64(0) : out.Put32(0); }

// A track of a take's header: no sample, one sample description.
void PutTrack(BoxWriter& out, uint32_t id, uint32_t handler, uint32_t timescale, bool wide) {
  size_t trak = out.Begin(BoxTypes::kTrak);
  size_t tkhd = out.Begin(BoxTypes::kTkhd);
  PutDates(out, wide, TkhdFlags::kEnabled | TkhdFlags::kInMovie);
  out.Put32(id);
  out.Put32(0);
  PutDuration(out, wide);
  out.Put64(0);                                  // reserved
  out.Put16(0), out.Put16(0), out.Put16(0), out.Put16(0);  // layer, group, volume, reserved
  PutMatrix(out);
  out.Put32(0), out.Put32(0);                    // width, height
  out.End(tkhd);
  size_t mdia = out.Begin(BoxTypes::kMdia);
  size_t mdhd = out.Begin(BoxTypes::kMdhd);
  PutDates(out, wide, 0);
  out.Put32(timescale);
  PutDuration(out, wide);
  out.Put16(0x7FFF), out.Put16(0);  // no language, quality
  out.End(mdhd);
  size_t hdlr = out.Begin(BoxTypes::kHdlr);
  out.Put32(0);
  out.Put32(Handlers::kMediaHandler);
  out.Put32(handler);
  for (int i = 0; i < 3; ++i) out.Put32(0);
  out.Put8(0);  // no name
  out.End(hdlr);
  size_t minf = out.Begin(BoxTypes::kMinf);
  size_t stbl = out.Begin(BoxTypes::kStbl);
  size_t stsd = out.Begin(BoxTypes::kStsd);
  out.Put32(0);
  out.Put32(1);
  if (handler == Handlers::kPicture) {
    size_t entry = out.Begin(BoxType("2vuy"));
    for (int i = 0; i < 6; ++i) out.Put8(0);
    out.Put16(1);  // data reference
    out.Put16(0), out.Put16(0), out.Put32(0), out.Put32(0), out.Put32(0);  // version, revision, vendor, qualities
    out.Put16(4), out.Put16(4);                     // width, height
    out.Put32(72 << 16), out.Put32(72 << 16), out.Put32(0);  // resolutions, data size
    out.Put16(1);                                   // frames a sample
    for (int i = 0; i < 32; ++i) out.Put8(0);       // compressor name
    out.Put16(24), out.Put16(0xFFFF);               // depth, no colour table
    out.End(entry);
  } else {
    size_t entry = out.Begin(BoxType("sowt"));
    for (int i = 0; i < 6; ++i) out.Put8(0);
    out.Put16(1);
    out.Put16(0), out.Put16(0), out.Put32(0);  // version, revision, vendor
    out.Put16(2), out.Put16(16), out.Put16(0), out.Put16(0);  // channels, bits, compression, packet size
    out.Put32(timescale << 16);
    out.End(entry);
  }
  out.End(stsd);
  for (uint32_t type : {BoxTypes::kStts, BoxTypes::kStsc, BoxTypes::kStco}) {
    size_t table = out.Begin(type);
    out.Put32(0), out.Put32(0);
    out.End(table);
  }
  size_t stsz = out.Begin(BoxTypes::kStsz);
  out.Put32(0), out.Put32(0), out.Put32(0);
  out.End(stsz);
  out.End(stbl);
  out.End(minf);
  out.End(mdia);
  out.End(trak);
}

}  // namespace

FakeTake::FakeTake(const std::string& path, bool wideHeaders) : mPath(path) {
  std::ofstream(mPath, std::ios::binary | std::ios::trunc);
  Append(Header(wideHeaders));
}

std::vector<uint8_t> FakeTake::Header(bool wideHeaders) {
  BoxWriter out;
  size_t ftyp = out.Begin(BoxTypes::kFtyp);
  out.Put32(BoxType("qt  "));
  out.Put32(0);
  out.Put32(BoxType("qt  "));
  out.End(ftyp);
  size_t moov = out.Begin(BoxTypes::kMoov);
  size_t mvhd = out.Begin(BoxTypes::kMvhd);
  PutDates(out, wideHeaders, 0);
  out.Put32(1000);  // timescale
  PutDuration(out, wideHeaders);
  out.Put32(kFixedOne), out.Put16(0x0100);  // rate, volume
  for (int i = 0; i < 10; ++i) out.Put8(0);
  PutMatrix(out);
  for (int i = 0; i < 6; ++i) out.Put32(0);
  out.Put32(3);  // next track ID
  out.End(mvhd);
  PutTrack(out, kPictureTrack, Handlers::kPicture, kPictureScale, wideHeaders);
  PutTrack(out, kSoundTrack, Handlers::kSound, kSoundRate, wideHeaders);
  size_t mvex = out.Begin(BoxTypes::kMvex);
  for (uint32_t id : {kPictureTrack, kSoundTrack}) {
    size_t trex = out.Begin(BoxTypes::kTrex);
    out.Put32(0);
    out.Put32(id);
    out.Put32(1);  // description
    out.Put32(0), out.Put32(0), out.Put32(0);  // duration, size, flags
    out.End(trex);
  }
  out.End(mvex);
  out.End(moov);
  return out.bytes;
}

std::vector<uint8_t> FakeTake::Fragment(uint32_t track, uint64_t time, uint32_t duration, uint32_t size,
                                        size_t* durationAt) {
  BoxWriter out;
  size_t moof = out.Begin(BoxTypes::kMoof);
  size_t mfhd = out.Begin(BoxTypes::kMfhd);
  out.Put32(0);
  out.Put32(1);
  out.End(mfhd);
  size_t traf = out.Begin(BoxTypes::kTraf);
  size_t tfhd = out.Begin(BoxTypes::kTfhd);
  out.Put32(FullBoxWord(0, TfhdFlags::kDefaultBaseIsMoof | TfhdFlags::kDefaultSampleDuration |
                               TfhdFlags::kDefaultSampleSize | TfhdFlags::kDefaultSampleFlags));
  out.Put32(track);
  if (durationAt) *durationAt = out.bytes.size();
  out.Put32(duration);
  out.Put32(size);
  // As the server writes them: a picture's defaults say it depends on others, its run's
  // first (and only) sample that it is a key frame.
  const bool picture = track == kPictureTrack;
  out.Put32(picture ? SampleFlags::kDependsOnOthers | SampleFlags::kIsNotSync : SampleFlags::kDependsOnNothing);
  out.End(tfhd);
  size_t tfdt = out.Begin(BoxTypes::kTfdt);
  out.Put32(FullBoxWord(1, 0));
  out.Put64(time);
  out.End(tfdt);
  size_t trun = out.Begin(BoxTypes::kTrun);
  out.Put32(FullBoxWord(0, picture ? TrunFlags::kDataOffset | TrunFlags::kFirstSampleFlags : TrunFlags::kDataOffset));
  out.Put32(1);
  size_t dataOffset = out.bytes.size();
  out.Put32(0);
  if (picture) out.Put32(SampleFlags::kDependsOnNothing);
  out.End(trun);
  out.End(traf);
  out.End(moof);
  out.Patch32(dataOffset, static_cast<uint32_t>(out.bytes.size() + 8));
  out.Put32(8 + size);
  out.Put32(BoxTypes::kMdat);
  out.bytes.resize(out.bytes.size() + size, 0x5A);
  return out.bytes;
}

void FakeTake::Picture(uint64_t slot) {
  size_t at = 0;
  std::vector<uint8_t> bytes = Fragment(kPictureTrack, slot * kFrame, kFrame, kPictureBytes, &at);
  mLastDuration = mSize + at;
  Append(bytes);
}

void FakeTake::Sound(uint64_t first, uint32_t frames) { Append(Fragment(kSoundTrack, first, frames, frames * 4)); }

void FakeTake::LastPictureLasts(uint32_t duration) {
  const uint8_t field[4] = {static_cast<uint8_t>(duration >> 24), static_cast<uint8_t>(duration >> 16),
                            static_cast<uint8_t>(duration >> 8), static_cast<uint8_t>(duration)};
  int fd = open(mPath.c_str(), O_WRONLY | O_CLOEXEC);
  if (fd < 0) return;
  if (pwrite(fd, field, sizeof field, static_cast<off_t>(mLastDuration)) != sizeof field) mLastDuration = 0;
  close(fd);
}

void FakeTake::Append(const std::vector<uint8_t>& bytes) {
  std::ofstream file(mPath, std::ios::binary | std::ios::app);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  mSize += bytes.size();
}

}  // namespace KTN
