// The packets FFmpeg reads from a finished movie's picture and sound tracks: each one's sidecar fields and where its bytes lie.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "FrameHash/FrameHashLine.h"

namespace KTN {

// One packet: a picture sample whole, or up to kSoundPacketFrames sample frames of a sound
// chunk, cut from the chunk's start.
struct TakePacket {
  uint64_t offset = 0;    // where its bytes start in the file
  int64_t dts = 0;        // in its stream's timescale; its pts is the same
  uint32_t duration = 0;  // in its stream's timescale
  uint32_t size = 0;      // bytes
  int stream = 0;

  // Its line with the hash still to be filled.
  FrameHashLine Line() const;
};

// The streams as `ffmpeg -i MOVIE -map 0:v -map 0:a` numbers them: the first picture track
// is stream 0, the first sound track the next. A value; not thread-safe.
struct TakePackets {
  struct Stream {
    int index = 0;
    bool picture = false;
    uint32_t timescale = 0;
    uint64_t samples = 0;  // pictures, or sound sample frames
  };
  std::vector<Stream> streams;      // pictures first when there are any
  std::vector<TakePacket> packets;  // in file order; no two overlap, every one inside the file
  uint64_t fileSize = 0;

  // Reads the index of the finished movie at path: 0; 22 (EINVAL) when the file is not a
  // finished movie (no movie header, a take still laid out as fragments, a finish or stamp
  // cut off); 74 (EBADMSG) when its index places a sample outside the file, over another or
  // cannot be read; or errno with one failure line. Packets are kept only as the samples
  // fill the file: at most one for each of its bytes.
  long Read(const std::string& path);

  // The stream of pictures or of sound, or null.
  const Stream* Find(bool picture) const;
};

}  // namespace KTN
