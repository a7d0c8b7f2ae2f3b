// Handing one round of queued frame slots to the recording server: a fresh shared-memory
// segment for each picture and each packet, filled, named in a map command, and let go once
// the server has answered.
#include "Record/RecordHandOver.h"

#include <errno.h>
#include <limits.h>
#include <sys/uio.h>

#include <algorithm>
#include <vector>

#include "Core/SegmentLock.h"
#include "Core/SharedMemory.h"
#include "IPC/QTRecordClient.h"
#include "IPC/RecorderCommands.h"
#include "Record/RecordHandlers.h"
#include "Util/DeviceResult.h"
#include "Util/Log.h"

namespace KTN {

namespace {

// Fills segment with the item's size bytes, or with the packed form that pack makes of them
// (into the instance's buffer); 0 or the failure, reported.
template <typename Item>
long FillSegment(CapPriv* instance, HandOverSegment& segment, unsigned long size, Item* item,
                 void (*pack)(const uint8_t* in, uint8_t* out, unsigned long samples) = nullptr) {
  void* bytes = nullptr;
  if (VeldranResult rc = item->GetBytes(&bytes)) {
    KTN_LOG("GetBytes returned %ld (0x%lx)", static_cast<long>(rc), Util::DeviceHex(rc));
    return rc;
  }
  struct iovec part = {bytes, size};
  if (pack) {
    std::vector<uint8_t>& packed = instance->packedSound;
    if (packed.size() < size) packed.resize(size);
    pack(static_cast<const uint8_t*>(bytes), packed.data(), size / 3);
    part.iov_base = packed.data();
  }
  return segment.Fill(&part, 1);
}

// 24-bit sound arrives as 32-bit samples and keeps their three high-order bytes.
void PackTo24Bits(const uint8_t* in, uint8_t* out, unsigned long samples) {
  for (unsigned long i = 0; i < samples; ++i, in += 4, out += 3) {
    out[0] = in[1];
    out[1] = in[2];
    out[2] = in[3];
  }
}

// Whether the card's audio layout still is the one the settings ask for.
bool SoundLayoutUnchanged(CapPriv* instance) {
  const CaptureSettings& settings = instance->settings;
  if (settings.audioChannels == instance->activeAudioChannels &&
      (settings.audioSampleType == 24 ? 32u : settings.audioSampleType) == instance->activeAudioSampleType) {
    return true;
  }
  KTN_LOG("Audio settings (%u channels, %u bits) differ from the card's (%u channels, %u bits) since activation",
          settings.audioChannels, settings.audioSampleType, instance->activeAudioChannels,
          instance->activeAudioSampleType);
  return false;
}

// Sends the command of a hand-over whose segment (if any) is filled, and waits for its
// answer until answerBy; the hand-over is the instance's pending one until answered.
// 0 with status the answer, 115 (EINPROGRESS) when it has not come by then (the hand-over
// stays pending), or the exchange's failure.
long AwaitHandOver(CapPriv* instance, std::chrono::steady_clock::time_point answerBy, long& status) {
  // No deadline: as long as the server works on it (a count of milliseconds to the end of
  // the clock would not fit the budget).
  if (answerBy == std::chrono::steady_clock::time_point::max()) return instance->recordClient->ReceiveAnswer(-1, status);
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(answerBy - std::chrono::steady_clock::now()).count();
  return instance->recordClient->ReceiveAnswer(
      static_cast<int>(std::min<decltype(left)>(std::max<decltype(left)>(left, 1), INT_MAX)), status);
}

// Ends the pending hand-over: releases its item and removes its segment.
void ReleaseHandOver(CapPriv* instance) {
  instance->pending = PendingHandOver();
}

// What the answer to the pending hand-over means; the hand-over is over either way. 0, or
// the failure that ends the service loop, reported.
long SettleHandOver(CapPriv* instance, long status) {
  const char* command = instance->pending.command;
  ReleaseHandOver(instance);
  if (command == cmdMapVideo && status == kDroppedFramesStatus) {
    instance->droppedFrames = true;  // the server dropped frames: not an error
    return 0;
  }
  if (command == cmdSkipVideo && status == 0) {
    instance->droppedFrames = true;  // pictures given up here count as the server's own drops
    return 0;
  }
  if (status) {
    KTN_LOG("%s returned %ld", command, status);
    return status;
  }
  return 0;
}

// Starts one hand-over: the command with its argument, for the segment and the item that
// go with it and the frame slots it completes; then waits for the answer until answerBy.
// 0 when answered and settled, 115 when still pending, or the failure (the item released: a
// failed hand-over ends the loop and its item is never handed over, so keeping it would only
// hold the card's memory).
long HandOver(CapPriv* instance, const char* command, unsigned long long argument, HandOverSegment segment,
              VeldranRef<IVeldranUnknown> item, int64_t slots, std::chrono::steady_clock::time_point answerBy) {
  PendingHandOver& pending = instance->pending;
  pending.command = command;
  pending.segment = std::move(segment);
  pending.item = std::move(item);
  pending.slotCount = slots;
  if (long rc = instance->recordClient->SendCommand(command, argument)) {
    KTN_LOG("%s returned %ld", command, rc);
    ReleaseHandOver(instance);
    return rc;
  }
  return FinishPendingHandOver(instance, answerBy);
}

// The lock of a segment name, made at its first use.
Core::SegmentLock& LockOf(std::unique_ptr<Core::SegmentLock>& lock, const char* key) {
  if (!lock) lock.reset(new Core::SegmentLock(key));
  return *lock;
}

}  // namespace

long FinishPendingHandOver(CapPriv* instance, std::chrono::steady_clock::time_point answerBy) {
  if (!instance->pending.command) return 0;
  long status = 0;
  long rc = AwaitHandOver(instance, answerBy, status);
  if (rc == EINPROGRESS) return rc;
  if (rc) {
    KTN_LOG("%s returned %ld", instance->pending.command, rc);
    ReleaseHandOver(instance);
    return rc;
  }
  return SettleHandOver(instance, status);
}

long HandOverRound(CapPriv* instance, Round& round, std::chrono::steady_clock::time_point nameBy,
                   std::chrono::steady_clock::time_point answerBy) {
  if (round.givenUp) {
    const unsigned long long givenUp = round.givenUp;
    round.givenUp = 0;
    long rc = HandOver(instance, cmdSkipVideo, givenUp, HandOverSegment(), VeldranRef<IVeldranUnknown>(),
                       static_cast<int64_t>(givenUp), answerBy);
    if (rc) return rc;
  }
  if (round.frame) {
    HandOverSegment segment;
    if (long rc = segment.TakeName(LockOf(instance->videoSegmentLock, kVideoShmKey), nameBy)) return rc;
    VeldranRef<IVeldranVideoInputFrame> frame = std::move(round.frame);
    unsigned long size = static_cast<unsigned long>(frame->GetRowBytes()) * static_cast<unsigned long>(frame->GetHeight());
    if (long rc = segment.Create(kVideoShmKey, size)) return rc;
    if (long rc = FillSegment(instance, segment, size, frame.Get())) return rc;
    if (long rc = HandOver(instance, cmdMapVideo, size, std::move(segment), std::move(frame), 1, answerBy)) return rc;
  }
  while (!round.packets.empty()) {
    if (!SoundLayoutUnchanged(instance)) return EINVAL;
    HandOverSegment segment;
    if (long rc = segment.TakeName(LockOf(instance->audioSegmentLock, kAudioShmKey), nameBy)) return rc;
    VeldranRef<IVeldranAudioInputPacket> packet = std::move(round.packets.front());
    round.packets.pop_front();
    const CaptureSettings& settings = instance->settings;
    unsigned long sampleFrames = static_cast<unsigned long>(packet->GetSampleFrameCount());
    unsigned long size = sampleFrames * settings.audioChannels * (settings.audioSampleType / 8);
    if (long rc = segment.Create(kAudioShmKey, size)) return rc;
    if (long rc = FillSegment(instance, segment, size, packet.Get(), settings.audioSampleType == 24 ? PackTo24Bits : nullptr)) return rc;
    if (long rc = HandOver(instance, cmdMapAudio, size, std::move(segment), std::move(packet), 0, answerBy)) return rc;
  }
  return 0;
}

void FinishHandOvers(CapPriv* instance) {
  if (!instance || !instance->recordClient || !instance->pending.command) return;
  // As long as the server works on it: a server that does nothing is given up by the client.
  FinishPendingHandOver(instance, std::chrono::steady_clock::time_point::max());
}

}  // namespace KTN
