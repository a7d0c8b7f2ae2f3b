// A take: the recording server configured for it (recPrepRecord8), its status reports to the
// host, its end (recStopRecord, recCloseRecord), and the stamp of the finished movie.
#include "Record/RecordTake.h"

#include <errno.h>
#include <stdio.h>

#include <functional>
#include <string>

#include "Capture/APICapture.h"
#include "Core/Lock.h"
#include "IPC/QTRecordClient.h"
#include "Movie/MovieLock.h"
#include "Movie/TimecodeTrack.h"
#include "Record/RecordHandlers.h"
#include "Record/RecordPlatform.h"
#include "Util/Log.h"
#include "Util/TimeCode.h"

namespace KTN {

namespace {

const char kRecordingText[] = "Recording to disk";
const char kDroppedFramesText[] = "Recording to disk (WARNING: Dropped frames detected)";

// While an in-point recording waits for it, the reports say what for and where the signal is,
// or that the signal is past it. (A plain "Recording to disk" would tell the editor a take was
// being recorded that was not.)
const char kWaitingText[] = "Waiting for %s";
const char kWaitingAtText[] = "Waiting for %s (signal at %s)";
const char kPassedText[] = "Waiting for %s: the signal has passed it (signal at %s)";
const char kNoTimecodeText[] = "Waiting for %s: the signal carries no timecode (the deck decides)";
// Said once, in the first report after an in-point take started at once because the signal
// carries no timecode and no deck decides: the take is not from the place asked for. Every
// other report of a started take is one of the two recording texts, which hosts match exactly.
const char kStartedWithoutTimecodeText[] =
    "The signal carries no timecode: recorded from its first frame, not from %s";

// The report of a recording that waits for its in-point, made into the instance's buffer;
// null when it has no in-point.
const char* WaitingReport(CapPriv* instance) {
  if (instance->frameLimit <= 0 || !instance->inPoint.framesPerSecond) return nullptr;
  char in[16], at[16];
  Util::ConvertTimeCodeToString(&instance->inPoint, in);
  char* text = instance->statusText;
  const size_t size = sizeof instance->statusText;
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

// The note of an in-point take that started without timecode, made into the instance's
// buffer, the first time it is asked for after the start; null otherwise.
const char* StartNote(CapPriv* instance) {
  if (!instance->startedWithoutTimecode || instance->startNoteReported || !instance->inPoint.framesPerSecond) {
    return nullptr;
  }
  instance->startNoteReported = true;
  char in[16];
  Util::ConvertTimeCodeToString(&instance->inPoint, in);
  snprintf(instance->statusText, sizeof instance->statusText, kStartedWithoutTimecodeText, in);
  return instance->statusText;
}

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
// field order, the first frame's timecode and where the tape's timecode broke. Once a recording; a take that cannot be
// stamped stays as the server finished it, and the log says why.
void StampTake(CapPriv* instance) {
  std::string path;
  path.swap(instance->takePath);
  instance->takeTimecodes.End();  // the take's timecode breaks are all in its events sidecar
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
  // The runs from each break of the tape's timecode, as the hand-over read the pictures':
  // one timecode sample each, so that every frame after a break carries the tape's timecode.
  if (!stamp.startTimecode.empty()) stamp.timecodeBreaks = instance->takeTimecodes.Breaks();
  if (stamp.fields == MovieStamp::Fields::kKeep && stamp.startTimecode.empty()) return;
  if (long rc = stamp.Apply(path)) KTN_LOG("Stamping %s returned %ld", path.c_str(), rc);
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

int32_t ReportTake(CapPriv* instance, int64_t handedOver) {
  const bool warning = instance->reportDroppedFrames && instance->droppedFrames;
  // A report's count is in the host's units (pairs above 30 frames a second), except the
  // warning's, which is deliberately not halved.
  const int64_t hostCount = instance->settings.CountsFramePairs() ? handedOver / 2 : handedOver;
  const int64_t count = warning ? handedOver : hostCount;
  int32_t result = 0;
  if (instance->statusFunc) {
    // The note of a take that started without its timecode comes once, just before the
    // first report after the start, which stays one of the two recording texts: a take that
    // ends at that report (its frame limit reached, frames dropped) still tells the host so.
    if (const char* note = instance->started ? StartNote(instance) : nullptr) {
      instance->statusFunc(instance->callbackID, note, hostCount);
    }
    // Once started, one of the two recording texts; before, the wait's report unless the
    // warning takes its place.
    const char* text = instance->started || warning ? nullptr : WaitingReport(instance);
    if (!text) text = warning ? kDroppedFramesText : kRecordingText;
    result = instance->statusFunc(instance->callbackID, text, count);
  }
  if (instance->abortOnDroppedFrames && instance->droppedFrames) return rmAborted;
  if (instance->frameLimit < 1) return result;
  return instance->frameLimit > handedOver ? result : rmFrameLimitReached;
}

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
  instance->takeSlots = 0;
  instance->takeTimecodes.Begin(path, s.frameDuration, s.timeScale);
  // The callback may still be running for the recording before: the fields it reads are set
  // while it cannot be (see recordingLock).
  Core::Lock recordingLock(&instance->recordingLock);
  instance->statusFunc = parms->statusFunc;
  instance->prerollFunc = parms->prerollFunc;
  instance->timecodeFunc = parms->timecodeFunc;
  instance->videoEnabled = static_cast<uint8_t>(parms->videoEnabled);
  instance->audioEnabled = static_cast<uint8_t>(parms->audioEnabled);
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
  instance->startNoteReported = false;
  instance->startTimecodeFailed = false;
  instance->timecodeFailureSaid = false;
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
