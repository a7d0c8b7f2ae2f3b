// Handing one round of queued frame slots to the recording server: a fresh shared-memory
// segment for each picture and each packet, filled, named in a map command, and let go once
// the server has answered.
#include "Record/RecordHandOver.h"

#include <errno.h>
#include <limits.h>
#include <pwd.h>
#include <sys/uio.h>
#include <unistd.h>

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

// Creates segment with size bytes, removing a segment of the same name left behind by an
// earlier run once. The failure lines name the caller's medium.
long CreateSegment(Core::SharedMemory& segment, unsigned long size) {
  long rc = segment.Create(size);
  uid_t owner = 0;
  if (rc == EEXIST && Core::SegmentLock::Owner(segment.Key(), owner) == 0 && owner != geteuid()) {
    // Left by another user's recording (an active one would hold the lock): not ours to remove.
    struct passwd entry, *found = nullptr;
    char names[1024];
    getpwuid_r(owner, &entry, names, sizeof names, &found);
    KTN_LOG("Segment %s was left behind by user %s (%u) and only that user can remove it", segment.Key(),
            found ? found->pw_name : "unknown", static_cast<unsigned>(owner));
    return EACCES;
  }
  if (rc == EEXIST) {
    if (long unlinked = segment.Unlink()) KTN_LOG("Unlink returned %ld", unlinked);
    rc = segment.Create(size);
  }
  if (rc) KTN_LOG("Create(%lu) returned %ld", size, rc);
  return rc;
}

// A fresh segment of size bytes for one frame or packet, holding the item's bytes, or
// the packed form that pack makes of them (into the instance's buffer); 0 or the failure,
// reported. The segment is filled through its descriptor, not through a new mapping,
// whose pages would each fault on the first write.
template <typename Item>
long FillSegment(CapPriv* instance, Core::SharedMemory& segment, unsigned long size, Item* item,
                 void (*pack)(const uint8_t* in, uint8_t* out, unsigned long samples) = nullptr) {
  if (long rc = CreateSegment(segment, size)) return rc;
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
  if (long rc = segment.Fill(&part, 1)) {
    KTN_LOG("Fill returned %ld", rc);
    return rc;
  }
  return 0;
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

// Ends the pending hand-over: releases its items and removes its segment.
void ReleaseHandOver(CapPriv* instance) {
  PendingHandOver& pending = instance->pending;
  if (pending.frame) pending.frame->Release();
  if (pending.packet) pending.packet->Release();
  delete pending.segment;  // unmaps nothing (it was never mapped) and removes the name
  if (pending.lock) pending.lock->Release();  // then another process may make the name again
  pending = PendingHandOver();
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

// Starts one hand-over: the command with its argument, for the segment and items (taking
// them over) that go with it; then waits for the answer until answerBy. 0 when answered
// and settled, 115 when still pending, or the failure (the items released: a failed
// hand-over ends the loop and its items are never handed over, so keeping them would only
// hold the card's memory).
long HandOver(CapPriv* instance, const char* command, unsigned long long argument, Core::SharedMemory* segment,
              Core::SegmentLock* lock, IVeldranVideoInputFrame* frame, IVeldranAudioInputPacket* packet,
              std::chrono::steady_clock::time_point answerBy) {
  PendingHandOver& pending = instance->pending;
  pending.command = command;
  pending.lock = lock;
  pending.slotCount = command == cmdSkipVideo ? static_cast<int64_t>(argument) : frame ? 1 : 0;
  pending.segment = segment;
  pending.frame = frame;
  pending.packet = packet;
  if (long rc = instance->recordClient->SendCommand(command, argument)) {
    KTN_LOG("%s returned %ld", command, rc);
    ReleaseHandOver(instance);
    return rc;
  }
  return FinishPendingHandOver(instance, answerBy);
}

// The lock of a segment name, made at its first use.
Core::SegmentLock* LockOf(Core::SegmentLock*& lock, const char* key) {
  if (!lock) lock = new Core::SegmentLock(key);
  return lock;
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
    long rc = HandOver(instance, cmdSkipVideo, round.givenUp, nullptr, nullptr, nullptr, nullptr, answerBy);
    round.givenUp = 0;
    if (rc) return rc;
  }
  if (round.frame) {
    Core::SegmentLock* lock = LockOf(instance->videoSegmentLock, kVideoShmKey);
    if (long rc = lock->Acquire(nameBy)) return rc;
    IVeldranVideoInputFrame* frame = round.frame;
    round.frame = nullptr;
    unsigned long size = static_cast<unsigned long>(frame->GetRowBytes()) * static_cast<unsigned long>(frame->GetHeight());
    Core::SharedMemory* segment = new Core::SharedMemory(kVideoShmKey);
    if (long rc = FillSegment(instance, *segment, size, frame)) {
      delete segment;
      lock->Release();
      frame->Release();
      return rc;
    }
    if (long rc = HandOver(instance, cmdMapVideo, size, segment, lock, frame, nullptr, answerBy)) return rc;
  }
  while (round.nextPacket < round.packets.size()) {
    if (!SoundLayoutUnchanged(instance)) return EINVAL;
    Core::SegmentLock* lock = LockOf(instance->audioSegmentLock, kAudioShmKey);
    if (long rc = lock->Acquire(nameBy)) return rc;
    IVeldranAudioInputPacket* packet = round.packets[round.nextPacket++];
    const CaptureSettings& settings = instance->settings;
    unsigned long sampleFrames = static_cast<unsigned long>(packet->GetSampleFrameCount());
    unsigned long size = sampleFrames * settings.audioChannels * (settings.audioSampleType / 8);
    Core::SharedMemory* segment = new Core::SharedMemory(kAudioShmKey);
    if (long rc = FillSegment(instance, *segment, size, packet, settings.audioSampleType == 24 ? PackTo24Bits : nullptr)) {
      delete segment;
      lock->Release();
      packet->Release();
      return rc;
    }
    if (long rc = HandOver(instance, cmdMapAudio, size, segment, lock, nullptr, packet, answerBy)) return rc;
  }
  return 0;
}

void FinishHandOvers(CapPriv* instance) {
  if (!instance || !instance->recordClient || !instance->pending.command) return;
  // As long as the server works on it: a server that does nothing is given up by the client.
  FinishPendingHandOver(instance, std::chrono::steady_clock::time_point::max());
}

}  // namespace KTN
