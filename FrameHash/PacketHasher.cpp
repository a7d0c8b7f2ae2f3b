// Murmur3 hashes of a sample's packets, with libavutil's hash.
#include "FrameHash/PacketHasher.h"

#include <algorithm>

extern "C" {
#include <libavutil/hash.h>
}

namespace KTN {

PacketHasher::PacketHasher() {
  if (av_hash_alloc(&mHash, "murmur3") < 0) mHash = nullptr;
}

PacketHasher::~PacketHasher() {
  av_hash_freep(&mHash);
}

void PacketHasher::Begin(int stream, int64_t dts, int64_t duration, uint64_t size, uint32_t frameBytes) {
  mLines.clear();
  mPacket = FrameHashLine();
  mPacket.stream = stream;
  mPacket.dts = dts;
  mSize = size;
  mFed = 0;
  mFrameBytes = frameBytes;
  mEnd = dts + duration;
  StartPacket();
}

void PacketHasher::StartPacket() {
  uint64_t left = mSize - mFed;
  if (mFrameBytes) {
    uint64_t frames = std::min<uint64_t>(left / mFrameBytes, kSoundPacketFrames);
    if (frames == 0) frames = 1;  // a torn last frame still makes a packet of its own
    left = std::min<uint64_t>(left, frames * mFrameBytes);
    mPacket.duration = static_cast<int64_t>(frames);
  } else {
    mPacket.duration = mEnd - mPacket.dts;
  }
  mPacket.pts = mPacket.dts;
  mPacket.size = static_cast<uint32_t>(left);
  mPacketEnd = mFed + left;
  if (mHash) av_hash_init(mHash);
  if (left == 0) FinishPacket();  // an empty sample is one empty packet
}

void PacketHasher::FinishPacket() {
  if (mHash) av_hash_final(mHash, mPacket.hash.data());
  mLines.push_back(mPacket);
  mPacket.dts += mPacket.duration;
}

void PacketHasher::Update(const uint8_t* data, size_t size) {
  while (size > 0 && mFed < mSize) {
    size_t take = static_cast<size_t>(std::min<uint64_t>(size, mPacketEnd - mFed));
    if (mHash) av_hash_update(mHash, data, take);
    data += take;
    size -= take;
    mFed += take;
    if (mFed == mPacketEnd) {
      FinishPacket();
      if (mFed < mSize) StartPacket();
    }
  }
}

}  // namespace KTN
