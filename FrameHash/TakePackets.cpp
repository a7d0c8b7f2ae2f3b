// Lists a finished movie's packets as FFmpeg's QuickTime reader hands them out.
#include "FrameHash/TakePackets.h"

#include <errno.h>

#include <algorithm>

#include "FrameHash/PacketHasher.h"
#include "Movie/MovieFile.h"
#include "Movie/MovieTracks.h"
#include "Movie/SampleTable.h"
#include "Movie/TopLevelBoxes.h"
#include "Util/Log.h"

namespace KTN {

FrameHashLine TakePacket::Line() const {
  FrameHashLine line;
  line.stream = stream;
  line.dts = line.pts = dts;
  line.duration = duration;
  line.size = size;
  return line;
}

const TakePackets::Stream* TakePackets::Find(bool picture) const {
  for (const Stream& stream : streams) {
    if (stream.picture == picture) return &stream;
  }
  return nullptr;
}

namespace {

// Adds the packets of one track; false when one lies outside the file or the samples add
// up to more bytes than it has (they would overlap).
bool AddTrack(const SampleTable& table, TakePackets::Stream& stream, uint64_t fileSize, uint64_t& bytes,
              std::vector<TakePacket>& packets) {
  auto add = [&](const TakePacket& packet) {
    if (packet.size == 0 || packet.offset > fileSize || packet.size > fileSize - packet.offset ||
        packet.size > fileSize - bytes) {
      return false;
    }
    bytes += packet.size;
    packets.push_back(packet);
    return true;
  };
  TakePacket packet;
  packet.stream = stream.index;
  // Uncompressed sound is one table sample a frame, each a unit of time: FFmpeg reads each
  // chunk from its start in packets of at most kSoundPacketFrames frames.
  const uint32_t frameBytes = table.CommonSize();
  if (!stream.picture && frameBytes && table.Duration() == table.samples) {
    stream.samples = table.samples;
    for (const SampleTable::Chunk& chunk : table.chunks) {
      for (uint32_t done = 0; done < chunk.samples;) {
        const uint32_t frames = std::min(chunk.samples - done, kSoundPacketFrames);
        packet.offset = chunk.offset + static_cast<uint64_t>(done) * frameBytes;
        packet.dts = static_cast<int64_t>(chunk.firstSample + done);
        packet.duration = frames;
        const uint64_t size = static_cast<uint64_t>(frames) * frameBytes;
        if (size > UINT32_MAX) return false;
        packet.size = static_cast<uint32_t>(size);
        if (!add(packet)) return false;
        done += frames;
      }
    }
    return true;
  }
  // Pictures (and any other sound): a packet a sample.
  bool ok = true;
  stream.samples = table.samples;
  table.Walk([&](const TableSample& sample) {
    packet.offset = sample.offset;
    packet.dts = static_cast<int64_t>(sample.decodeTime);
    packet.duration = sample.duration;
    packet.size = sample.size;
    ok = add(packet);
    return ok;
  });
  return ok;
}

}  // namespace

long TakePackets::Read(const std::string& path) {
  *this = TakePackets();
  MovieFile file(path);
  if (long rc = file.Open(false)) return rc;
  fileSize = file.Size();
  TopLevelBoxes top;
  if (long rc = top.Read(file)) return rc;
  const Box* moovBox = BoxReader::Find(top.boxes, BoxTypes::kMoov);
  if (!moovBox || top.Unfinished() || top.Count(BoxTypes::kMdat) == 0) return EINVAL;
  std::vector<uint8_t> moov;
  if (long rc = file.Read(moovBox->offset, moovBox->size, moov)) return rc;
  Box whole = *moovBox;
  whole.offset = 0;
  MovieTracks tracks;
  if (!tracks.Read(moov, whole)) return EBADMSG;

  // The first picture track, then the first sound track.
  uint64_t bytes = 0;
  for (bool picture : {true, false}) {
    const uint32_t handler = picture ? Handlers::kPicture : Handlers::kSound;
    for (const TrackDescription& track : tracks.tracks) {
      if (track.handler != handler || !track.complete) continue;
      SampleTable table;
      if (!table.Read(moov, track)) {
        KTN_LOG("The index of %s cannot be read: a sample table of track %u is cut short or disagrees with itself",
                path.c_str(), track.id);
        return EBADMSG;
      }
      Stream stream;
      stream.index = static_cast<int>(streams.size());
      stream.picture = picture;
      stream.timescale = track.timescale;
      if (!AddTrack(table, stream, fileSize, bytes, packets)) {
        KTN_LOG("The index of %s places a sample of track %u outside the file or over another", path.c_str(), track.id);
        packets.clear();
        return EBADMSG;
      }
      streams.push_back(stream);
      break;
    }
  }
  std::stable_sort(packets.begin(), packets.end(),
                   [](const TakePacket& a, const TakePacket& b) { return a.offset < b.offset; });
  for (size_t i = 1; i < packets.size(); ++i) {
    if (packets[i].offset < packets[i - 1].offset + packets[i - 1].size) {
      KTN_LOG("The index of %s places two samples over each other at byte %llu", path.c_str(),
              static_cast<unsigned long long>(packets[i].offset));
      packets.clear();
      return EBADMSG;
    }
  }
  return 0;
}

}  // namespace KTN
