// The samples of one fragment of a movie.
#include "Movie/FragmentSamples.h"

namespace KTN {

namespace {

using Status = FragmentSamples::Status;

// The bytes of a run's per-sample fields.
uint64_t PerSampleBytes(uint32_t runFlags) {
  uint64_t bytes = 0;
  for (uint32_t field : {TrunFlags::kSampleDuration, TrunFlags::kSampleSize, TrunFlags::kSampleFlags,
                         TrunFlags::kSampleCompositionOffset}) {
    if (runFlags & field) bytes += 4;
  }
  return bytes;
}

// One pass over the fragment: a check only without a visitor, the samples handed over with one.
Status Pass(const std::vector<uint8_t>& moof, uint64_t moofOffset, uint64_t dataBegin, uint64_t dataEnd,
            const MovieTracks& tracks, FragmentSamples::Visitor* visitor) {
  std::vector<Box> top, trafs, parts;
  if (!BoxReader::ChildBoxes(moof.data(), 0, moof.size(), top) || top.size() != 1 || top[0].type != BoxTypes::kMoof ||
      !BoxReader::Children(moof, top[0], trafs)) {
    return Status::kMalformed;
  }
  for (const Box& traf : trafs) {
    if (traf.type != BoxTypes::kTraf) continue;
    if (!BoxReader::Children(moof, traf, parts)) return Status::kMalformed;
    const Box* tfhd = BoxReader::Find(parts, BoxTypes::kTfhd);
    if (!tfhd) return Status::kMalformed;
    BoxReader header(moof, *tfhd);
    const uint32_t flags = FullBoxFlags(header.U32());
    const int index = tracks.Find(header.U32());
    if (!header.ok) return Status::kMalformed;
    if (index < 0) return Status::kUnknownTrack;
    const TrackDescription& track = tracks.tracks[static_cast<size_t>(index)];
    // Without a base of its own, data offsets count from the moof, as our writer says.
    const uint64_t base = flags & TfhdFlags::kBaseDataOffset ? header.U64() : moofOffset;
    const uint32_t description = flags & TfhdFlags::kSampleDescription ? header.U32() : track.defaultDescription;
    const uint32_t defaultDuration = flags & TfhdFlags::kDefaultSampleDuration ? header.U32() : track.defaultDuration;
    const uint32_t defaultSize = flags & TfhdFlags::kDefaultSampleSize ? header.U32() : track.defaultSize;
    const uint32_t defaultFlags = flags & TfhdFlags::kDefaultSampleFlags ? header.U32() : track.defaultFlags;
    if (!header.ok) return Status::kMalformed;

    uint64_t time = 0;
    if (const Box* tfdt = BoxReader::Find(parts, BoxTypes::kTfdt)) {
      BoxReader decode(moof, *tfdt);
      const bool wide = FullBoxVersion(decode.U32()) == 1;
      time = wide ? decode.U64() : decode.U32();
      if (!decode.ok) return Status::kMalformed;
    } else if (visitor) {
      time = visitor->NextDecodeTime(static_cast<size_t>(index));
    }

    uint64_t next = base;  // where a run without a data offset of its own starts
    for (const Box& trun : parts) {
      if (trun.type != BoxTypes::kTrun) continue;
      BoxReader run(moof, trun);
      const uint32_t runFlags = FullBoxFlags(run.U32());
      const uint32_t count = run.U32();
      if (runFlags & TrunFlags::kDataOffset) {
        next = base + static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(run.U32())));
      }
      const uint32_t firstFlags = runFlags & TrunFlags::kFirstSampleFlags ? run.U32() : defaultFlags;
      if (!run.ok) return Status::kMalformed;
      if (count == 0) continue;
      // The count is read from the file: the run's fields and its samples' bytes must be
      // there for every one of them before any is looked at.
      const uint64_t fieldBytes = PerSampleBytes(runFlags);
      if (fieldBytes && count > run.Left() / fieldBytes) return Status::kMalformed;
      if (next < dataBegin || next > dataEnd || count > dataEnd - next) return Status::kOutsideData;
      for (uint32_t i = 0; i < count; ++i) {
        FragmentSample sample;
        sample.track = static_cast<size_t>(index);
        sample.duration = runFlags & TrunFlags::kSampleDuration ? run.U32() : defaultDuration;
        sample.size = runFlags & TrunFlags::kSampleSize ? run.U32() : defaultSize;
        const uint32_t sampleFlags = runFlags & TrunFlags::kSampleFlags ? run.U32() : (i == 0 ? firstFlags : defaultFlags);
        if (runFlags & TrunFlags::kSampleCompositionOffset && run.U32() != 0) return Status::kReordered;
        if (!run.ok) return Status::kMalformed;
        if (sample.size > dataEnd - next) return Status::kOutsideData;
        sample.offset = next;
        sample.decodeTime = time;
        sample.sync = !(sampleFlags & SampleFlags::kIsNotSync);
        sample.description = description;
        sample.runSamples = i == 0 ? count : 0;
        if (visitor) visitor->Sample(sample);
        next += sample.size;
        time += sample.duration;
      }
    }
  }
  return Status::kRead;
}

}  // namespace

FragmentSamples::Status FragmentSamples::Walk(const std::vector<uint8_t>& moof, uint64_t moofOffset,
                                              uint64_t dataBegin, uint64_t dataEnd, const MovieTracks& tracks,
                                              Visitor& visitor) {
  if (dataBegin > dataEnd) return Status::kOutsideData;
  const Status checked = Pass(moof, moofOffset, dataBegin, dataEnd, tracks, nullptr);
  if (checked != Status::kRead) return checked;
  return Pass(moof, moofOffset, dataBegin, dataEnd, tracks, &visitor);
}

const char* FragmentSamples::Why(Status status) {
  switch (status) {
    case Status::kRead: return "it was read";
    case Status::kMalformed: return "its boxes or fields run past their end";
    case Status::kUnknownTrack: return "it names a track the movie does not have";
    case Status::kOutsideData: return "a sample lies outside its data";
    case Status::kReordered: return "its pictures are shown in another order than they are decoded";
  }
  return "it cannot be described";
}

}  // namespace KTN
