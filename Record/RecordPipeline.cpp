// The recording pipeline: configure the server, queue frames on the device thread, hand them to
// the server through shared memory on the host's thread, and end the recording.
#include <errno.h>
#include <limits.h>
#include <pwd.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "Capture/APICapture.h"
#include "Core/Lock.h"
#include "Core/SegmentLock.h"
#include "Core/SharedMemory.h"
#include "IPC/QTRecordClient.h"
#include "IPC/RecorderCommands.h"
#include "Movie/MovieLock.h"
#include "Movie/TimecodeTrack.h"
#include "Record/RecordHandlers.h"
#include "Record/RecordPlatform.h"
#include "Util/DeviceResult.h"
#include "Util/Log.h"
#include "Util/Printer.h"
#include "Util/TimeCode.h"

namespace KTN {

namespace {

const char kRecordingText[] = "Recording to disk";
const char kDroppedFramesText[] = "Recording to disk (WARNING: Dropped frames detected)";

// While an in-point recording waits for it, the reports say what for and where the signal is,
// or that the signal is past it; one that started at once without timecode says so. (A plain
// "Recording to disk" would tell the editor a take was being recorded that was not, or one
// from a place it was not.)
const char kWaitingText[] = "Waiting for %s";
const char kWaitingAtText[] = "Waiting for %s (signal at %s)";
const char kPassedText[] = "Waiting for %s: the signal has passed it (signal at %s)";
const char kNoTimecodeText[] = "Waiting for %s: the signal carries no timecode (the deck decides)";
const char kStartedWithoutTimecodeText[] =
    "Recording to disk (the signal carries no timecode: recorded from its first frame, not from %s)";

// The report of a recording that waits for its in-point (or started without its timecode),
// made into the instance's buffer; null when the report is the ordinary one.
const char* InPointReport(CapPriv* instance) {
  if (instance->frameLimit <= 0 || !instance->inPoint.framesPerSecond) return nullptr;
  char in[16], at[16];
  Util::ConvertTimeCodeToString(&instance->inPoint, in);
  char* text = instance->statusText;
  const size_t size = sizeof instance->statusText;
  if (instance->started) {
    if (!instance->startedWithoutTimecode) return nullptr;
    snprintf(text, size, kStartedWithoutTimecodeText, in);
    return text;
  }
  switch (instance->signalState.load()) {
    case kSignalTimecode: {
      Util::TimeCode signal = instance->inPoint;  // read at the in-point's rate
      Util::ConvertFrameCountBCDToTimeCode(instance->signalTimecodeBCD, &signal);
      Util::ConvertTimeCodeToString(&signal, at);
      // Up to half a day ahead is past the in-point; further is before it (across midnight).
      const bool passed = Util::CompareTimeCodes(&signal, &instance->inPoint, true) > 0;
      snprintf(text, size, passed ? kPassedText : kWaitingAtText, in, at);
      return text;
    }
    case kSignalNoTimecode:
      snprintf(text, size, kNoTimecodeText, in);
      return text;
    default:
      snprintf(text, size, kWaitingText, in);
      return text;
  }
}

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

// Finishes a hand-over a service call left pending; waits until answerBy (0 when answered
// and settled, 115 when still pending, or the failure).
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

}  // namespace

bool HostTimecodeNow(CapPriv* instance, char* text) {
  text[0] = '\0';
  int32_t frameNumber = 0, unused1 = 0, unused2 = 0;
  if (!instance->timecodeFunc) return false;
  instance->timecodeFunc(instance->callbackID, &frameNumber, &unused1, &unused2);
  Util::TimeCode now = instance->inPoint;
  Util::ConvertFrameCountToTimeCode(static_cast<unsigned>(frameNumber), &now);
  Util::ConvertTimeCodeToString(&now, text);
  return true;
}

namespace {

// The movie's field order for the card's mode of the settings; kKeep when the card does not say.
MovieStamp::Fields FieldOrderOfMode(CapPriv* instance) {
  uint32_t dominance = 0;
  if (!instance->apiCapture || instance->apiCapture->GetFieldDominance(instance->settings.displayMode, &dominance)) {
    return MovieStamp::Fields::kKeep;
  }
  switch (dominance) {
    case ktnProgressiveFrame: return MovieStamp::Fields::kProgressive;
    case ktnUpperFieldFirst: return MovieStamp::Fields::kTopFirst;
    case ktnLowerFieldFirst: return MovieStamp::Fields::kBottomFirst;
    default: return MovieStamp::Fields::kKeep;
  }
}

// Stamps the take the server has finished with what the plug-in alone knows: the card's
// field order and the first frame's timecode. Once a recording; a take that cannot be
// stamped stays as the server finished it, and the log says why.
void StampTake(CapPriv* instance) {
  std::string path;
  path.swap(instance->takePath);
  if (path.empty() || !instance->started) return;  // no frame was recorded: nothing to say of it
  const CaptureSettings& s = instance->settings;
  MovieStamp stamp;
  stamp.fields = instance->takeFields;
  stamp.frameDuration = s.frameDuration;
  stamp.timescale = s.timeScale;
  if (TimecodeTrack::CountableRate(s.frameDuration, s.timeScale)) {
    // None when the card could not read the first frame's timecode: a track from the host's
    // guess would put a wrong timecode on every frame.
    Core::Lock lock(&instance->recordingLock);
    if (!instance->startTimecodeUnread) stamp.startTimecode = instance->startTimeCodeString;
  }
  if (stamp.fields == MovieStamp::Fields::kKeep && stamp.startTimecode.empty()) return;
  if (long rc = stamp.Apply(path)) KTN_LOG("Stamping %s returned %ld", path.c_str(), rc);
}

// The frame's timecode, RP188 first, then VITC; null when the frame carries none. A card that
// cannot read it (any answer but "not found") is said once a recording, naming the answer:
// the take then starts without the card's timecode rather than with a made-up one. Device
// thread, under recordingLock.
IVeldranTimecode* FrameTimecode(CapPriv* instance, IVeldranVideoInputFrame* video) {
  VeldranResult failure = kVeldranOK;
  uint32_t failedKind = 0;
  for (uint32_t kind : {static_cast<uint32_t>(ktnTimecodeRP188), static_cast<uint32_t>(ktnTimecodeVITC)}) {
    IVeldranTimecode* timecode = nullptr;
    VeldranResult rc = video->GetTimecode(kind, &timecode);
    if (rc == kVeldranOK && timecode) return timecode;
    if (rc != kVeldranOK && rc != kVeldranNotFound && !failure) {
      failure = rc;
      failedKind = kind;
    }
  }
  if (failure && !instance->timecodeFailureReported) {
    instance->timecodeFailureReported = true;
    KTN_LOG("GetTimecode(%s) returned %ld (0x%lx): the frames' timecode cannot be read",
            Util::Printer::Fcc(static_cast<int>(failedKind)), static_cast<long>(failure), Util::DeviceHex(failure));
  }
  return nullptr;
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

}  // namespace

int32_t recPrepRecord8(CapPriv* instance, recCapParmsRec8* parms) {
  if (!instance || !instance->recordClient || !instance->recordingLock.IsInitialised() || !parms) {
    KTN_LOG("Invalid capPtr %p or uninitialised record client", static_cast<void*>(instance));
    return rmBadParameter;
  }
  instance->recordingPrepared = false;
  // A recording closed without a stop keeps `recording`: it queues nothing more from here,
  // and what it queued since its close (a callback under way included) is let go.
  instance->recording = false;
  {
    Core::Lock lock(&instance->recordingLock);
    flush(instance);
  }
  FinishHandOvers(instance);  // a recording still open lets its last hand-over finish
  if (!instance->takePath.empty()) {
    // A take prepared and never stopped is finished first: the server holds its movie until
    // then, and the next take may be made in the same file.
    if (long rc = instance->recordClient->Stop()) KTN_LOG("Stop returned %ld", rc);
    else StampTake(instance);
  }
  std::string path;
  if (!Utf16ToUtf8(parms->path, kRecordPathUnits, path)) {
    // The path could not be made into text: no NUL within the host's units, or not UTF-16.
    KTN_LOG("CFStringCreateWithCharacters returned %ld", static_cast<long>(EINVAL));
    return rmBadParameter;
  }
  // A file that cannot be made for the take (another process is writing the movie, or the
  // path names no regular file) fails as any other: the reason is told first.
  if (CreateEmptyFile(path.c_str()) != 0) {
    KTN_LOG("Failed to create file");
    return rmBadParameter;
  }
  QTRecordClient& client = *instance->recordClient;
  const CaptureSettings& s = instance->settings;
  struct Command {
    const char* name;
    std::function<long()> send;
  };
  // The server's configuration for this recording, in the order the server expects.
  const Command commands[] = {
      {"Begin", [&] { return client.Begin(); }},
      {"SetVideoEnabled", [&] { return client.SetVideoEnabled(parms->videoEnabled != 0); }},
      {"SetVideoDuration", [&] { return client.SetVideoDuration(s.frameDuration); }},
      {"SetVideoTimescale", [&] { return client.SetVideoTimescale(s.timeScale); }},
      {"SetVideoWidth", [&] { return client.SetVideoWidth(static_cast<int>(s.width)); }},
      {"SetVideoHeight", [&] { return client.SetVideoHeight(static_cast<int>(s.height)); }},
      {"SetPixelAspectRatioX", [&] { return client.SetPixelAspectRatioX(static_cast<int>(s.pixelAspectX)); }},
      {"SetPixelAspectRatioY", [&] { return client.SetPixelAspectRatioY(static_cast<int>(s.pixelAspectY)); }},
      {"SetVideoCodecType", [&] { return client.SetVideoCodecType(static_cast<int>(s.codecType)); }},
      {"SetVideoCodecVendor", [&] { return client.SetVideoCodecVendor(static_cast<int>(s.codecVendor)); }},
      {"SetVideoCodecQuality", [&] { return client.SetVideoCodecQuality(1023); }},  // the highest there is
      {"SetAudioEnabled", [&] { return client.SetAudioEnabled(parms->audioEnabled != 0); }},
      {"SetAudioChannels", [&] { return client.SetAudioChannels(static_cast<int>(s.audioChannels)); }},
      {"SetAudioType", [&] { return client.SetAudioType(static_cast<int>(s.audioSampleType)); }},
      {"SetAudioRate", [&] { return client.SetAudioRate(static_cast<int>(s.audioSampleRate)); }},
      {"SetFilePath", [&] { return client.SetFilePath(path.c_str()); }},
      {"Prepare", [&] { return client.Prepare(); }},
  };
  for (const Command& command : commands) {
    if (long rc = command.send()) {
      KTN_LOG("%s returned %ld", command.name, rc);
      MovieLock::RemoveIfUnrecorded(path);  // no take: the file made for it goes
      return static_cast<int32_t>(rc);
    }
  }

  instance->takePath = path;
  instance->takeFields = FieldOrderOfMode(instance);
  // The callback may still be running for the recording before: the fields it reads are set
  // while it cannot be (see recordingLock).
  Core::Lock recordingLock(&instance->recordingLock);
  instance->statusFunc = parms->statusFunc;
  instance->prerollFunc = parms->prerollFunc;
  instance->timecodeFunc = parms->timecodeFunc;
  instance->videoEnabled = static_cast<uint8_t>(parms->videoEnabled);
  instance->abortOnDroppedFrames = parms->abortOnDroppedFrames != 0;
  instance->reportDroppedFrames = parms->reportDroppedFrames != 0;
  instance->droppedFrames = false;
  Util::TimeCode& inPoint = instance->inPoint;
  inPoint = Util::TimeCode();
  inPoint.timeScale = s.timeScale;
  inPoint.frameDuration = s.frameDuration;
  uint8_t rate = parms->timecodeRate == 23 ? 24 : parms->timecodeRate;
  if (rate == 0) {
    // No timecode rate from the host: count at the recording's own rate rather than divide by zero.
    rate = static_cast<uint8_t>(s.frameDuration ? (s.timeScale + s.frameDuration - 1) / s.frameDuration : 30);
    if (rate == 0) rate = 30;
  }
  inPoint.framesPerSecond = rate;
  inPoint.dropFrame = parms->dropFrame;
  Util::ConvertFrameCountToTimeCode(parms->startFrameCount, &inPoint);
  instance->inPointBCD = Util::ConvertTimeCodeToFrameCountBCD(&inPoint);
  instance->frameLimit = parms->frameCount == 0x7FFFFFFF ? 0 : parms->frameCount;
  if (s.CountsFramePairs()) instance->frameLimit *= 2;
  // The queues' bounds, in frame slots of this recording's rate.
  const double framesPerSecond = s.frameDuration ? static_cast<double>(s.timeScale) / s.frameDuration : 30.0;
  if (instance->queueLock) {
    long rc = 0;
    Core::Lock lock(instance->queueLock, &rc);
    if (rc) KTN_LOG("Lock returned %ld", rc);
    instance->videoQueueLimit = static_cast<size_t>(kVideoQueueSeconds * framesPerSecond + 0.999) + kVideoQueueSpare;
    instance->soundQueueLimit = static_cast<size_t>(kSoundQueueSeconds * framesPerSecond + 0.999);
    instance->soundGivenUp = false;
  }
  instance->nextFrameTime = -1;
  instance->soundGiveUpReported = false;
  instance->signalState = kSignalUnseen;
  instance->signalTimecodeBCD = 0;
  instance->startedWithoutTimecode = false;
  instance->timecodeFailureReported = false;
  instance->startTimecodeUnread = false;
  instance->started = false;
  instance->deviceControlReady = false;
  {
    Core::Lock signalled(&instance->startEvent);
    instance->startEvent.mSignalled = false;  // a fresh latch for this recording; nobody waits yet
  }
  instance->startTimeCodeString[0] = '\0';
  instance->frameCount = 0;
  instance->recordingPrepared = true;
  return rmNoErr;
}

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
  if (!instance->started) {
    if (!video) return;  // sound before the start is not recorded
    IVeldranTimecode* timecode = FrameTimecode(instance, video);
    if (instance->frameLimit == 0) {
      // Recording from now on: remember the first frame's timecode for the host.
      instance->started = true;
      if (!timecode) {
        HostTimecodeNow(instance, instance->startTimeCodeString);
        // A card that could not read the frame's timecode leaves the host's guess in the
        // reply only: the movie is not stamped with it.
        instance->startTimecodeUnread = instance->timecodeFailureReported;
      } else {
        char* text = nullptr;
        if (timecode->GetString(&text) == kVeldranOK && text) {
          // A buffer of 31 bytes, as the host's text conversion is given: at most 30
          // characters and their terminator.
          snprintf(instance->startTimeCodeString, 31, "%s", text);
          free(text);
        }
        timecode->Release();
      }
    } else if (timecode) {
      // Waiting for the in-point; the host's reports say where the signal is meanwhile.
      const uint32_t bcd = timecode->GetBCD();
      instance->signalTimecodeBCD = bcd;
      instance->signalState = kSignalTimecode;
      if (bcd == instance->inPointBCD) instance->started = true;
      timecode->Release();
      if (!instance->started) return;
      Util::ConvertTimeCodeToString(&instance->inPoint, instance->startTimeCodeString);
    } else if (instance->deviceControlReady) {
      instance->signalState = kSignalNoTimecode;
      if (!instance->deviceControl || instance->deviceControl->CheckStart(video) != kVeldranOK) return;
      instance->started = true;
      Util::ConvertTimeCodeToString(&instance->inPoint, instance->startTimeCodeString);  // the deck's start
    } else {
      instance->signalState = kSignalNoTimecode;
      instance->startedWithoutTimecode = true;  // said in the reports: not from the in-point
      instance->started = true;  // no timecode and no deck: start at once
      HostTimecodeNow(instance, instance->startTimeCodeString);
      instance->startTimecodeUnread = instance->timecodeFailureReported;
    }
    instance->startEvent.Signal(nullptr);
  }
  // A recording with a frame limit takes that many slots and not one more, however many
  // frames arrive before the host has seen the limit reached.
  const int64_t limit = instance->frameLimit;
  if (limit > 0 && instance->frameCount >= limit) return;
  // Slots a card skipped without calling at all show as a jump in the frames' stream time;
  // they are kept as slots without a picture. A callback without a picture is a slot only
  // when the card dropped the picture of that slot; otherwise it brings sound alone.
  int64_t skipped = 0;
  bool slot = true;
  if (video) {
    int64_t frameTime = 0, frameDuration = 0;
    const int64_t scale = instance->settings.timeScale;
    if (scale > 0 && video->GetStreamTime(&frameTime, &frameDuration, scale) == kVeldranOK && frameDuration > 0) {
      if (instance->nextFrameTime >= 0 && frameTime > instance->nextFrameTime) {
        skipped = (frameTime - instance->nextFrameTime + frameDuration / 2) / frameDuration;
      }
      instance->nextFrameTime = frameTime + frameDuration;
    }
  } else if (!audio || PictureDroppedAt(instance, audio)) {
    // A slot whose picture the card dropped: a callback that brings nothing at all, or the
    // sound of the slot where the next picture was due.
    if (instance->nextFrameTime >= 0) instance->nextFrameTime += instance->settings.frameDuration;
  } else {
    slot = false;  // the sound of a slot whose picture came already
  }
  if (limit > 0 && skipped > limit - instance->frameCount - 1) skipped = limit - instance->frameCount - 1;
  {
    long rc = 0;
    Core::Lock lock(instance->queueLock, &rc);
    if (rc) KTN_LOG("Lock returned %ld", rc);  // queueing goes on regardless
    // Every slot is one entry of the video queue: the picture, or null where the card
    // dropped it or the queue already holds as many pictures as it may (the host is not
    // keeping up). A null entry holds nothing; its slot stays empty in the movie.
    for (int64_t i = 0; i < skipped; ++i) instance->videoQueue->push_back(nullptr);
    if (video && instance->heldPictures < instance->videoQueueLimit) {
      video->AddRef();
      instance->videoQueue->push_back(video);
      ++instance->heldPictures;
    } else if (slot) {
      instance->videoQueue->push_back(nullptr);
    }
    if (audio) {
      if (instance->audioQueue->size() < instance->soundQueueLimit) {
        audio->AddRef();
        instance->audioQueue->push_back(audio);
      } else {
        instance->soundGivenUp = true;
      }
    }
  }
  // Once per callback, whether it filled a slot or brought sound alone.
  instance->frameCount += 1 + skipped;
}

namespace {

// One round of the service loop: the front video entry (with the null entries behind it,
// whose slots go over together) and the sound that came with those slots.
struct Round {
  IVeldranVideoInputFrame* frame = nullptr;
  unsigned long long givenUp = 0;  // slots without a picture before frame
  // The packets in arrival order; those before nextPacket have been handed over.
  std::vector<IVeldranAudioInputPacket*> packets;
  size_t nextPacket = 0;
  bool Empty() const { return !frame && !givenUp && nextPacket == packets.size(); }
  // The frame slots it still holds.
  int64_t Slots() const { return static_cast<int64_t>(givenUp) + (frame ? 1 : 0); }
};

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
    round.frame = pictures.front();
    pictures.pop_front();
    --instance->heldPictures;
  }
  const size_t slots = static_cast<size_t>(round.Slots());
  if (slots == 0 && !pictures.empty()) return round;
  while (!sound.empty() && (round.packets.size() < std::max<size_t>(slots, 1) || sound.size() > pictures.size())) {
    round.packets.push_back(sound.front());
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
    entry->Release();
    entry = nullptr;
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
    instance->videoQueue->push_front(round.frame);
    ++instance->heldPictures;
  }
  for (size_t i = round.packets.size(); i > round.nextPacket; --i) instance->audioQueue->push_front(round.packets[i - 1]);
  round = Round();
}

// The lock of a segment name, made at its first use.
Core::SegmentLock* LockOf(Core::SegmentLock*& lock, const char* key) {
  if (!lock) lock = new Core::SegmentLock(key);
  return lock;
}

// Hands over one round; 0, 115 when an answer is still to come (the rest of the round is
// put back), 11 (EAGAIN) when another process holds a segment name past nameBy (the rest of
// the round is put back; its frame still in it when it was the video segment's name), or
// the failure (the round's items released).
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

// Lets go of what a failed round still held.
void ReleaseRound(Round& round) {
  if (round.frame) round.frame->Release();
  for (size_t i = round.nextPacket; i < round.packets.size(); ++i) round.packets[i]->Release();
  round = Round();
}

}  // namespace

void FinishHandOvers(CapPriv* instance) {
  if (!instance || !instance->recordClient || !instance->pending.command) return;
  // As long as the server works on it: a server that does nothing is given up by the client.
  FinishPendingHandOver(instance, std::chrono::steady_clock::time_point::max());
}

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
      // over: what it still holds is released here rather than left to the flush.
      ReleaseRound(round);
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
  // Report. The warning's count is deliberately not halved.
  int32_t result = 0;
  const char* inPointReport = InPointReport(instance);
  if (instance->statusFunc) {
    if (!(instance->reportDroppedFrames && instance->droppedFrames)) {
      int64_t count = handedOver;
      if (instance->settings.CountsFramePairs()) count /= 2;
      result = instance->statusFunc(instance->callbackID, inPointReport ? inPointReport : kRecordingText, count);
    } else {
      result = instance->statusFunc(instance->callbackID, kDroppedFramesText, handedOver);
    }
  }
  if (instance->abortOnDroppedFrames && instance->droppedFrames) return rmAborted;
  if (instance->frameLimit < 1) return result;
  return instance->frameLimit > handedOver ? result : rmFrameLimitReached;
}

void flush(CapPriv* instance) {
  long rc = 0;
  Core::Lock lock(instance->queueLock, &rc);
  if (rc) KTN_LOG("Lock returned %ld", rc);
  for (IVeldranVideoInputFrame* frame : *instance->videoQueue) {
    if (frame) frame->Release();
  }
  instance->videoQueue->clear();
  instance->heldPictures = 0;
  for (IVeldranAudioInputPacket* packet : *instance->audioQueue) packet->Release();
  instance->audioQueue->clear();
}

int32_t recStopRecord(CapPriv* instance) {
  if (!instance || !instance->recordClient) {
    KTN_LOG("Invalid capPtr %p or uninitialised record client", static_cast<void*>(instance));
    return rmBadParameter;
  }
  instance->recording = false;  // first, so that the device thread queues nothing more
  FinishHandOvers(instance);
  if (long rc = instance->recordClient->Stop()) {
    KTN_LOG("Stop returned %ld", rc);
    return static_cast<int32_t>(rc);
  }
  StampTake(instance);
  if (instance->queueLock) flush(instance);
  if (instance->statusFunc) {
    if (int32_t rc = instance->statusFunc(instance->callbackID, nullptr, 0)) {
      KTN_LOG("StatusFunc returned %ld", static_cast<long>(rc));
      return rc;
    }
  }
  return rmNoErr;
}

int32_t recCloseRecord(CapPriv* instance) {
  if (!instance || !instance->recordClient) {
    KTN_LOG("Invalid capPtr %p or uninitialised record client", static_cast<void*>(instance));
    return rmBadParameter;
  }
  FinishHandOvers(instance);
  long rc = instance->recordClient->Stop();
  if (rc) KTN_LOG("Stop returned %ld", rc);
  else StampTake(instance);  // a recording the host closed without stopping it
  if (instance->queueLock) flush(instance);
  return static_cast<int32_t>(rc);
}

}  // namespace KTN
