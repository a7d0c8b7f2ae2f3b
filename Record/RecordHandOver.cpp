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

// Packs samples of the device's into the segment's form: samples in, out of 3 bytes each.
typedef void (*Pack)(const uint8_t* in, uint8_t* out, unsigned long samples);

// What differs between pictures and sound on their way to the server: each item goes
// through a fresh segment of its medium's name, filled with its bytes, which its medium's
// map command names.
template <typename Item>
struct Medium {
  const char* key;                                    // the segment's name
  const char* command;                                // the map command
  std::unique_ptr<Core::SegmentLock> CapPriv::*lock;  // the name's lock
  int64_t slots;                                      // frame slots one item completes
  bool (*usable)(CapPriv* instance);                  // whether items can go now; null: always
  unsigned long (*size)(CapPriv* instance, Item* item);  // the segment's bytes
  Pack (*pack)(CapPriv* instance);                    // how the bytes are packed; null: copied
  void (*handed)(CapPriv* instance, Item* item);      // told of each item as it goes; null: nothing
};

// A picture's bytes as the card delivered them, rows and all.
unsigned long PictureBytes(CapPriv*, IVeldranVideoInputFrame* frame) {
  return static_cast<unsigned long>(frame->GetRowBytes()) * static_cast<unsigned long>(frame->GetHeight());
}

// A packet's sample frames in the settings' layout.
unsigned long SoundBytes(CapPriv* instance, IVeldranAudioInputPacket* packet) {
  const CaptureSettings& settings = instance->settings;
  return static_cast<unsigned long>(packet->GetSampleFrameCount()) * settings.audioChannels * (settings.audioSampleType / 8);
}

Pack SoundPacking(CapPriv* instance) {
  return instance->settings.audioSampleType == 24 ? PackTo24Bits : nullptr;
}

// A picture goes to the movie's next slot: its timecode is read here, on the host's thread,
// and kept in the take's runs (a break is appended to the events sidecar at once); at a rate
// no timecode counts there are no runs, and it is not read.
void PictureHanded(CapPriv* instance, IVeldranVideoInputFrame* frame) {
  if (instance->takeTimecodes.Counting()) {
    const VeldranRef<IVeldranTimecode> timecode = FrameTimecode(frame, nullptr, instance->timecodeFailureSaid);
    instance->takeTimecodes.Picture(instance->takeSlots, TimecodeString(timecode.Get()));
  }
  ++instance->takeSlots;
}

const Medium<IVeldranVideoInputFrame> kPictures = {
    kVideoShmKey, cmdMapVideo, &CapPriv::videoSegmentLock, 1, nullptr, PictureBytes, nullptr, PictureHanded};
const Medium<IVeldranAudioInputPacket> kSound = {
    kAudioShmKey, cmdMapAudio, &CapPriv::audioSegmentLock, 0, SoundLayoutUnchanged, SoundBytes, SoundPacking, nullptr};

// Fills segment with the item's size bytes, or with the packed form that pack makes of them
// (into the instance's buffer); 0 or the failure, reported.
template <typename Item>
long FillSegment(CapPriv* instance, HandOverSegment& segment, unsigned long size, Item* item, Pack pack) {
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

// Hands over the item in slot, of medium: takes the segment name's lock (waiting until nameBy
// at most), then the item out of slot, makes and fills its segment and sends the map
// command, waiting for the answer until answerBy. 0 when answered and settled, 115 when
// still pending, 11 (EAGAIN) when another process holds the name past nameBy (the item stays
// in slot), or the failure (the item stays in slot when it could not go at all, and is
// released otherwise).
template <typename Item>
long HandOverItem(CapPriv* instance, const Medium<Item>& medium, VeldranRef<Item>& slot,
                  std::chrono::steady_clock::time_point nameBy, std::chrono::steady_clock::time_point answerBy) {
  if (medium.usable && !medium.usable(instance)) return EINVAL;
  HandOverSegment segment;
  if (long rc = segment.TakeName(LockOf(instance->*medium.lock, medium.key), nameBy)) return rc;
  VeldranRef<Item> item = std::move(slot);
  if (medium.handed) medium.handed(instance, item.Get());
  const unsigned long size = medium.size(instance, item.Get());
  if (long rc = segment.Create(medium.key, size)) return rc;
  if (long rc = FillSegment(instance, segment, size, item.Get(), medium.pack ? medium.pack(instance) : nullptr)) return rc;
  return HandOver(instance, medium.command, size, std::move(segment), std::move(item), medium.slots, answerBy);
}

}  // namespace

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
    instance->takeSlots += static_cast<int64_t>(givenUp);  // empty slots of the movie
    long rc = HandOver(instance, cmdSkipVideo, givenUp, HandOverSegment(), VeldranRef<IVeldranUnknown>(),
                       static_cast<int64_t>(givenUp), answerBy);
    if (rc) return rc;
  }
  if (round.frame) {
    if (long rc = HandOverItem(instance, kPictures, round.frame, nameBy, answerBy)) return rc;
  }
  while (!round.packets.empty()) {
    long rc = HandOverItem(instance, kSound, round.packets.front(), nameBy, answerBy);
    if (!round.packets.front()) round.packets.pop_front();  // taken: handed over, or failed and released
    if (rc) return rc;
  }
  return 0;
}

void FinishHandOvers(CapPriv* instance) {
  if (!instance || !instance->recordClient || !instance->pending.command) return;
  // As long as the server works on it: a server that does nothing is given up by the client.
  FinishPendingHandOver(instance, std::chrono::steady_clock::time_point::max());
}

}  // namespace KTN
