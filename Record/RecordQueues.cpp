// The device callback and the service loop: the card's thread queues the frame slots of a
// recording (FrameArrivedCallback), and the host's service calls hand them to the recording
// server a round at a time (recServiceRecord) until the queues are empty.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <memory>

#include "Core/Lock.h"
#include "Record/RecordHandOver.h"
#include "Record/RecordHandlers.h"
#include "Record/RecordTake.h"
#include "Util/DeviceResult.h"
#include "Util/Log.h"
#include "Util/Printer.h"
#include "Util/TimeCode.h"

namespace KTN {

VeldranRef<IVeldranTimecode> FrameTimecode(IVeldranVideoInputFrame* video, bool* failed, std::atomic<bool>& said) {
  VeldranResult failure = kVeldranOK;
  uint32_t failedKind = 0;
  for (uint32_t kind : {static_cast<uint32_t>(ktnTimecodeRP188), static_cast<uint32_t>(ktnTimecodeVITC)}) {
    IVeldranTimecode* timecode = nullptr;
    VeldranResult rc = video->GetTimecode(kind, &timecode);
    if (rc == kVeldranOK && timecode) return VeldranRef<IVeldranTimecode>(timecode);
    if (rc != kVeldranOK && rc != kVeldranNotFound && !failure) {
      failure = rc;
      failedKind = kind;
    }
  }
  if (failure && failed) *failed = true;
  if (failure && !said.exchange(true)) {
    KTN_LOG("GetTimecode(%s) returned %ld (0x%lx): the frames' timecode cannot be read",
            Util::Printer::Fcc(static_cast<int>(failedKind)), static_cast<long>(failure), Util::DeviceHex(failure));
  }
  return VeldranRef<IVeldranTimecode>();
}

std::string TimecodeString(IVeldranTimecode* timecode) {
  char* text = nullptr;
  if (!timecode || timecode->GetString(&text) != kVeldranOK || !text) return std::string();
  std::unique_ptr<char, decltype(&free)> owned(text, free);  // the card's text is the caller's to free
  return std::string(owned.get());
}

namespace {

// Takes a queue entry's reference into a holder, leaving the entry null: the queues hold raw
// references, and whatever leaves them leaves in a holder.
template <typename T>
VeldranRef<T> TakeEntry(T*& entry) {
  VeldranRef<T> held(entry);
  entry = nullptr;
  return held;
}

// Whether a callback with sound and no picture stands for a frame slot whose picture the card
// dropped: its sound starts where the next picture was due (half a frame early at most) or
// later. Otherwise it is the sound of a slot whose picture came in a callback of its own (a
// card may deliver sound apart from its pictures), and no slot is missing. Without the card's
// clock to tell (no picture time yet, or a packet without a time) nothing counts as dropped.
// Device thread, under recordingLock.
bool PictureDroppedAt(CapPriv* instance, IVeldranAudioInputPacket* audio) {
  const int64_t scale = instance->settings.timeScale;
  const int64_t duration = instance->settings.frameDuration;
  int64_t packetTime = 0;
  if (instance->nextFrameTime < 0 || scale <= 0 || duration <= 0 ||
      audio->GetPacketTime(&packetTime, scale) != kVeldranOK) {
    return false;
  }
  return packetTime + duration / 2 >= instance->nextFrameTime;
}

// Recording from now on (no frame limit): starts with this frame, and keeps its timecode
// (timecode, or null when it has none) as the take's start for the host.
void StartFromNow(CapPriv* instance, IVeldranTimecode* timecode) {
  instance->started = true;
  if (!timecode) {
    HostTimecodeNow(instance, instance->startTimeCodeString);
    // A card that could not read the frame's timecode leaves the host's guess in the
    // reply only: the movie is not stamped with it.
    instance->startTimecodeUnread = instance->startTimecodeFailed;
    return;
  }
  const std::string text = TimecodeString(timecode);
  // A buffer of 31 bytes, as the host's text conversion is given: at most 30 characters
  // and their terminator.
  if (!text.empty()) snprintf(instance->startTimeCodeString, 31, "%s", text.c_str());
}

// Waiting for the in-point on a signal with timecode: starts when the frame's timecode is the
// in-point. The host's reports say where the signal is meanwhile. Whether it started.
bool StartAtInPoint(CapPriv* instance, IVeldranTimecode* timecode) {
  const uint32_t bcd = timecode->GetBCD();
  instance->signalTimecodeBCD = bcd;
  instance->signalState = kSignalTimecode;
  if (bcd != instance->inPointBCD) return false;
  instance->started = true;
  Util::ConvertTimeCodeToString(&instance->inPoint, instance->startTimeCodeString);
  return true;
}

// Waiting for the in-point on a signal without timecode: a deck that is ready decides with
// its start check; without one the take starts at once, from the signal's first frame, and
// the host is told so. Whether it started.
bool StartWithoutTimecode(CapPriv* instance, IVeldranVideoInputFrame* video) {
  instance->signalState = kSignalNoTimecode;
  if (instance->deviceControlReady) {
    if (!instance->deviceControl || instance->deviceControl->CheckStart(video) != kVeldranOK) return false;
    instance->started = true;
    Util::ConvertTimeCodeToString(&instance->inPoint, instance->startTimeCodeString);  // the deck's start
    return true;
  }
  instance->startedWithoutTimecode = true;  // said in the reports: not from the in-point
  instance->started = true;                 // no timecode and no deck: start at once
  HostTimecodeNow(instance, instance->startTimeCodeString);
  instance->startTimecodeUnread = instance->startTimecodeFailed;
  return true;
}

// Whether the recording has started: while it waits for its start condition, this callback's
// picture may meet it (sound alone never does: sound before the start is not recorded). The
// first accepted frame is signalled to selector 5's wait.
bool ReachStart(CapPriv* instance, IVeldranVideoInputFrame* video) {
  if (instance->started) return true;
  if (!video) return false;
  const VeldranRef<IVeldranTimecode> timecode =
      FrameTimecode(video, &instance->startTimecodeFailed, instance->timecodeFailureSaid);
  bool started = true;
  if (instance->frameLimit == 0) {
    StartFromNow(instance, timecode.Get());
  } else if (timecode) {
    started = StartAtInPoint(instance, timecode.Get());
  } else {
    started = StartWithoutTimecode(instance, video);
  }
  if (started) instance->startEvent.Signal(nullptr);
  return started;
}

// A recording with a frame limit takes that many slots and not one more, however many
// frames arrive before the host has seen the limit reached.
bool LimitReached(const CapPriv* instance) {
  return instance->frameLimit > 0 && instance->frameCount >= instance->frameLimit;
}

// The frame slots one callback brings: its own (unless it brings sound alone) and those the
// card skipped before it.
struct CallbackSlots {
  int64_t skipped = 0;  // slots the card skipped without calling at all, before this one
  bool own = true;      // false: sound alone, of a slot whose picture came already
};

// Slots a card skipped without calling at all show as a jump in the frames' stream time;
// they are kept as slots without a picture. A callback without a picture is a slot only when
// the card dropped the picture of that slot; otherwise it brings sound alone. The skipped
// slots stay within the frame limit.
CallbackSlots CountSlots(CapPriv* instance, IVeldranVideoInputFrame* video, IVeldranAudioInputPacket* audio) {
  CallbackSlots slots;
  if (video) {
    int64_t frameTime = 0, frameDuration = 0;
    const int64_t scale = instance->settings.timeScale;
    if (scale > 0 && video->GetStreamTime(&frameTime, &frameDuration, scale) == kVeldranOK && frameDuration > 0) {
      if (instance->nextFrameTime >= 0 && frameTime > instance->nextFrameTime) {
        slots.skipped = (frameTime - instance->nextFrameTime + frameDuration / 2) / frameDuration;
      }
      instance->nextFrameTime = frameTime + frameDuration;
    }
  } else if (!audio || PictureDroppedAt(instance, audio)) {
    // A slot whose picture the card dropped: a callback that brings nothing at all, or the
    // sound of the slot where the next picture was due.
    if (instance->nextFrameTime >= 0) instance->nextFrameTime += instance->settings.frameDuration;
  } else {
    slots.own = false;
  }
  const int64_t limit = instance->frameLimit;
  if (limit > 0 && slots.skipped > limit - instance->frameCount - 1) slots.skipped = limit - instance->frameCount - 1;
  return slots;
}

// Queues the callback's slots and sound; the caller holds queueLock. Every slot is one entry
// of the video queue: the picture, or null where the card dropped it or the queue already
// holds as many pictures as it may (the host is not keeping up). A null entry holds nothing;
// its slot stays empty in the movie. Sound beyond its queue's bound is given up.
void QueueLocked(CapPriv* instance, IVeldranVideoInputFrame* video, IVeldranAudioInputPacket* audio,
                 const CallbackSlots& slots) {
  for (int64_t i = 0; i < slots.skipped; ++i) instance->videoQueue->push_back(nullptr);
  if (video && instance->heldPictures < instance->videoQueueLimit) {
    video->AddRef();
    instance->videoQueue->push_back(video);
    ++instance->heldPictures;
  } else if (slots.own) {
    instance->videoQueue->push_back(nullptr);
  }
  // A take recorded without sound has no sound track: the card's packets stay with the card.
  if (!audio || !instance->audioEnabled) return;
  if (instance->audioQueue->size() < instance->soundQueueLimit) {
    audio->AddRef();
    instance->audioQueue->push_back(audio);
  } else {
    instance->soundGivenUp = true;
  }
}

}  // namespace

void FrameArrivedCallback(void* context, IVeldranVideoInputFrame* video, IVeldranAudioInputPacket* audio) {
  CapPriv* instance = static_cast<CapPriv*>(context);
  if (!instance || !instance->apiCapture || !instance->recordClient || !instance->queueLock ||
      !instance->recordingLock.IsInitialised()) {
    KTN_LOG("Invalid capPtr %p or uninitialised apiCapture or recordClient", context);
    return;
  }
  if (!instance->recording) return;
  // The recording's fields stay as they are until this call is over.
  Core::Lock recordingLock(&instance->recordingLock);
  if (!ReachStart(instance, video)) return;
  if (LimitReached(instance)) return;
  const CallbackSlots slots = CountSlots(instance, video, audio);
  {
    long rc = 0;
    Core::Lock lock(instance->queueLock, &rc);
    if (rc) KTN_LOG("Lock returned %ld", rc);  // queueing goes on regardless
    QueueLocked(instance, video, audio, slots);
  }
  // Once per callback, whether it filled a slot or brought sound alone.
  instance->frameCount += 1 + slots.skipped;
}

namespace {

// Takes the next round off the queues, of mostSlots frame slots at most, and without its
// picture unless picturesToo (while another process holds the video segment's name, only
// slots given up can go: they need no segment). soundGivenUp is set when the device thread
// gave up sound since the last look. A queued slot without its picture is a dropped frame,
// reported by the call that first sees it, not only once the server has it. A slot comes
// with at most one packet, so a round takes one packet for each of its slots, and more while
// sound is queued ahead of the pictures (after a put-back, or from audio-only callbacks):
// otherwise a run of slots without pictures would leave their sound behind and the sound
// queue would only grow. The sound of slots that cannot go yet waits with them.
Round PopRound(CapPriv* instance, bool& soundGivenUp, int64_t mostSlots, bool picturesToo) {
  Round round;
  long rc = 0;
  Core::Lock lock(instance->queueLock, &rc);
  if (rc) KTN_LOG("Lock returned %ld", rc);
  video_deque_t& pictures = *instance->videoQueue;
  audio_deque_t& sound = *instance->audioQueue;
  if (pictures.size() > instance->heldPictures) instance->droppedFrames = true;
  soundGivenUp = soundGivenUp || instance->soundGivenUp;
  instance->soundGivenUp = false;
  while (!pictures.empty() && !pictures.front() && round.Slots() < mostSlots) {
    pictures.pop_front();
    ++round.givenUp;
  }
  if (picturesToo && !pictures.empty() && pictures.front() && round.Slots() < mostSlots) {
    round.frame = TakeEntry(pictures.front());
    pictures.pop_front();
    --instance->heldPictures;
  }
  const size_t slots = static_cast<size_t>(round.Slots());
  if (slots == 0 && !pictures.empty()) return round;
  while (!sound.empty() && (round.packets.size() < std::max<size_t>(slots, 1) || sound.size() > pictures.size())) {
    round.packets.push_back(TakeEntry(sound.front()));
    sound.pop_front();
  }
  return round;
}

// Slots handed over and answered: those counted so far less those still queued and the
// ones whose hand-over waits for its answer. Read under the queues' lock: the device thread
// counts a slot only after queueing it, so every slot this includes has left the queue.
int64_t SlotsHandedOver(CapPriv* instance) {
  long rc = 0;
  Core::Lock lock(instance->queueLock, &rc);
  if (rc) KTN_LOG("Lock returned %ld", rc);
  return instance->frameCount - static_cast<int64_t>(instance->videoQueue->size()) - instance->pending.slotCount;
}

// The most frame slots one service call hands over. A host that counts the slots itself (its
// frame limit is not the plug-in's) stops at the first report that reaches its count, and
// every slot handed over by then is in the movie: a report that grew by more than one count
// could pass it. So a call hands over as many slots as the card counted since the previous
// call looked, and at least one count (a frame, or a pair where the host counts pairs),
// ending on a whole count; a backlog (after a wait for a segment name, or for the server)
// drains by one count a call beyond the card's own pace rather than all at once. With a
// frame limit of its own the plug-in queues no slot past it, and hands over all it can.
int64_t SlotsThisCall(CapPriv* instance) {
  const int64_t counted = instance->frameCount;
  int64_t seen = instance->slotsSeen;
  instance->slotsSeen = counted;
  if (instance->frameLimit > 0) return INT64_MAX;
  const int64_t count = instance->settings.CountsFramePairs() ? 2 : 1;
  const int64_t gone = SlotsHandedOver(instance) + instance->pending.slotCount;
  if (gone == 0) seen = 0;  // nothing of this recording has gone: every slot it counted is new
  const int64_t end = (gone + std::max(count, counted - seen)) / count * count;
  return std::max<int64_t>(end - gone, 1);
}

// While another process holds the video segment's name, the queue keeps its newest pictures:
// the oldest beyond kVideoQueueSeconds are given up, their slots kept. The device thread then
// has room for the newest, and the slots given up come first in the queue, where they go to
// the server at once (they need no segment). Otherwise the pictures queued before the wait
// would hold back every slot given up behind them until the name is free: the movie, the
// reports and a host counting slots would see nothing of a long wait until it ended, and
// then all of it at once. Returns the number of pictures given up.
size_t GiveUpOldestPictures(CapPriv* instance) {
  long rc = 0;
  Core::Lock lock(instance->queueLock, &rc);
  if (rc) KTN_LOG("Lock returned %ld", rc);
  const size_t keep = instance->videoQueueLimit > kVideoQueueSpare ? instance->videoQueueLimit - kVideoQueueSpare : 0;
  size_t givenUp = 0;
  for (IVeldranVideoInputFrame*& entry : *instance->videoQueue) {
    if (instance->heldPictures <= keep) break;
    if (!entry) continue;
    TakeEntry(entry);  // released here; the slot stays, without its picture
    --instance->heldPictures;
    ++givenUp;
  }
  return givenUp;
}

// Puts back what a round did not start to hand over because an earlier hand-over of it is
// still waiting for its answer: it goes first in the next call.
void PutBack(CapPriv* instance, Round& round) {
  long rc = 0;
  Core::Lock lock(instance->queueLock, &rc);
  if (rc) KTN_LOG("Lock returned %ld", rc);
  if (round.frame) {
    instance->videoQueue->push_front(round.frame.Leave());
    ++instance->heldPictures;
  }
  for (auto packet = round.packets.rbegin(); packet != round.packets.rend(); ++packet) {
    instance->audioQueue->push_front(packet->Leave());
  }
  round = Round();
}

}  // namespace

int32_t recServiceRecord(CapPriv* instance) {
  if (!instance || !instance->recording) return rmNoErr;
  if (!instance->recordClient || !instance->queueLock) {
    KTN_LOG("Invalid capPtr %p or uninitialised record client", static_cast<void*>(instance));
    return rmBadParameter;
  }
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  const Clock::time_point workUntil = start + std::chrono::milliseconds(instance->serviceWorkMillis);
  const Clock::time_point answerBy = start + std::chrono::milliseconds(kServiceAnswerMillis);
  // A segment name held by another process is waited for briefly: the calls go on handing
  // over what needs no segment, and reporting, however long someone else holds the name.
  const Clock::time_point nameBy = std::min(workUntil, start + std::chrono::milliseconds(kSegmentNameWaitMillis));
  bool soundGivenUp = false;
  long rc = FinishPendingHandOver(instance, answerBy);
  if (rc && rc != EINPROGRESS) return static_cast<int32_t>(rc);
  int64_t slotsLeft = SlotsThisCall(instance);
  bool nameHeld = false;  // the video segment's name is held elsewhere: only slots given up go
  // The queues drain, this call's share of slots at a time, until they are empty. Frames
  // arriving faster than they can be handed over would keep that going for ever: after
  // kServiceWorkMillis the call reports and returns, the rest waits for the next call, and
  // the queues' bounds give up pictures the host cannot take (their slots are kept).
  for (int rounds = 0; rc != EINPROGRESS; ++rounds) {
    if (rounds > 0 && Clock::now() >= workUntil) break;
    Round round = PopRound(instance, soundGivenUp, slotsLeft, !nameHeld);
    if (round.Empty()) break;
    const int64_t slots = round.Slots();
    rc = HandOverRound(instance, round, nameBy, answerBy);
    slotsLeft -= slots - round.Slots();
    if (rc == EINPROGRESS || rc == EAGAIN) {
      // An answer still to come, or another process using a segment name: the rest of the
      // round goes first next time.
      const bool pictureWaits = rc == EAGAIN && round.frame;
      PutBack(instance, round);
      if (rc == EAGAIN) rc = 0;
      if (pictureWaits && !nameHeld) {
        // The video segment's name: the slots given up behind the wait go on without it.
        nameHeld = true;
        if (GiveUpOldestPictures(instance) > 0) instance->droppedFrames = true;
        continue;
      }
      break;
    } else if (rc) {
      // A failed hand-over ends the loop with its failure, and its round is never handed
      // over: what it still holds goes with it here rather than being left to the flush.
      return static_cast<int32_t>(rc);
    }
  }
  const int64_t handedOver = SlotsHandedOver(instance);
  if (soundGivenUp) {
    // Once a recording: while the server does not catch up, every packet is given up.
    if (!instance->soundGiveUpReported) {
      KTN_LOG("Sound given up: %.0f seconds of sound are waiting for the recording server; newer sound is left out until it catches up",
              kSoundQueueSeconds);
      instance->soundGiveUpReported = true;
    }
    instance->droppedFrames = true;
  }
  return ReportTake(instance, handedOver);
}

void flush(CapPriv* instance) {
  long rc = 0;
  Core::Lock lock(instance->queueLock, &rc);
  if (rc) KTN_LOG("Lock returned %ld", rc);
  for (IVeldranVideoInputFrame*& frame : *instance->videoQueue) TakeEntry(frame);
  instance->videoQueue->clear();
  instance->heldPictures = 0;
  for (IVeldranAudioInputPacket*& packet : *instance->audioQueue) TakeEntry(packet);
  instance->audioQueue->clear();
}

}  // namespace KTN
