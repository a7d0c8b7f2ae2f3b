// Hashes a movie's samples as the packets FFmpeg reads them in: a picture whole, sound cut into packets of at most 1024 sample frames.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "FrameHash/FrameHashLine.h"

struct AVHashContext;

namespace KTN {

// FFmpeg's QuickTime reader hands out a picture sample as one packet and uncompressed sound
// in packets of at most this many sample frames, each chunk cut from its start. A sidecar's
// lines follow those packets.
constexpr uint32_t kSoundPacketFrames = 1024;

// The murmur3 hash (libavutil's) of each packet of one sample at a time, fed its bytes in
// order in pieces of any size. Used by one thread at a time; a value that owns its hash
// state.
class PacketHasher {
 public:
  PacketHasher();
  ~PacketHasher();
  PacketHasher(const PacketHasher&) = delete;
  PacketHasher& operator=(const PacketHasher&) = delete;

  // Whether the hash could be made (libavutil has murmur3, and memory).
  bool Ready() const { return mHash != nullptr; }

  // Begins a sample of stream `stream` at decode time dts lasting duration (both in its
  // stream's timescale), of size bytes. frameBytes: for sound, the bytes of one sample frame
  // (one unit of its timescale), whose packets are cut every kSoundPacketFrames; 0 for a
  // picture, one packet (its presentation time its decode time: every picture is a key
  // frame). Forgets the lines of the sample before.
  void Begin(int stream, int64_t dts, int64_t duration, uint64_t size, uint32_t frameBytes);
  // The sample's next bytes. Bytes beyond its size are passed over.
  void Update(const uint8_t* data, size_t size);
  // Whether every byte of the sample has come.
  bool Complete() const { return mFed == mSize; }
  // The lines of the sample's packets finished so far: all of them once Complete.
  const std::vector<FrameHashLine>& Lines() const { return mLines; }

 private:
  // Starts the packet that begins at the sample's byte mFed.
  void StartPacket();
  void FinishPacket();

  AVHashContext* mHash = nullptr;
  std::vector<FrameHashLine> mLines;
  FrameHashLine mPacket;        // the packet being hashed
  uint64_t mPacketEnd = 0;      // where it ends in the sample's bytes
  uint64_t mSize = 0;
  uint64_t mFed = 0;
  uint32_t mFrameBytes = 0;
  int64_t mEnd = 0;             // the sample's end in its timescale
};

}  // namespace KTN
