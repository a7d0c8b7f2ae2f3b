// The recording pipeline: configure the server, queue frames on the device thread, hand them to
// the server through shared memory on the host's thread, and end the recording.
#include <errno.h>
#include <string.h>

#include <functional>
#include <string>

#include "Capture/APICapture.h"
#include "Core/Lock.h"
#include "Core/SharedMemory.h"
#include "IPC/QTRecordClient.h"
#include "IPC/RecorderCommands.h"
#include "Record/RecordHandlers.h"
#include "Record/RecordPlatform.h"
#include "Util/Log.h"
#include "Util/TimeCode.h"

namespace KTN {

namespace {

const char kRecordingText[] = "Recording to disk";
const char kDroppedFramesText[] = "Recording to disk (WARNING: Dropped frames detected)";

// More than 30 frames a second: the host counts such a recording in frame pairs.
bool AboveThirtyFrames(const CaptureSettings& settings) {
  return settings.frameDuration && static_cast<double>(settings.timeScale) / settings.frameDuration > 30.0;
}

// Creates segment with size bytes, removing a segment of the same name left behind by an
// earlier run once. The failure lines name the caller's medium.
long CreateSegment(Core::SharedMemory& segment, unsigned long size) {
  long rc = segment.Create(size);
  if (rc == EEXIST) {
    if (long unlinked = segment.Unlink()) KTN_LOG("Unlink returned %ld", unlinked);
    rc = segment.Create(size);
  }
  if (rc) KTN_LOG("Create(%lu) returned %ld", size, rc);
  return rc;
}

// Creates and maps a fresh segment of size bytes for one frame or packet and finds the
// item's bytes; 0 or the failure, reported.
template <typename Item>
long OpenSegment(Core::SharedMemory& segment, unsigned long size, Item* item, void*& address, void*& bytes) {
  if (long rc = CreateSegment(segment, size)) return rc;
  if (long rc = segment.Map(address, false)) {
    KTN_LOG("Map returned %ld", rc);
    return rc;
  }
  if (VeldranResult rc = item->GetBytes(&bytes)) {
    KTN_LOG("GetBytes returned %ld (0x%lx)", static_cast<long>(rc), static_cast<long>(rc));
    return rc;
  }
  return 0;
}

// One video frame into the server: a fresh segment, a byte-for-byte copy, MapVideo.
long HandOverVideo(CapPriv* instance, IVeldranVideoInputFrame* frame) {
  unsigned long size = static_cast<unsigned long>(frame->GetRowBytes()) * static_cast<unsigned long>(frame->GetHeight());
  Core::SharedMemory segment(kVideoShmKey);
  void* address = nullptr;
  void* bytes = nullptr;
  if (long rc = OpenSegment(segment, size, frame, address, bytes)) return rc;
  memcpy(address, bytes, size);
  long rc = instance->recordClient->MapVideo(size);
  if (rc == kDroppedFramesStatus) {
    instance->droppedFrames = true;  // the server dropped frames: not an error
  } else if (rc) {
    KTN_LOG("MapVideo returned %ld", rc);
    return rc;
  }
  frame->Release();
  return 0;
}

// One audio packet into the server; 24-bit sound arrives as 32-bit samples and keeps their
// three high-order bytes.
long HandOverAudio(CapPriv* instance, IVeldranAudioInputPacket* packet) {
  const CaptureSettings& settings = instance->settings;
  if (settings.audioChannels != instance->activeAudioChannels ||
      (settings.audioSampleType == 24 ? 32u : settings.audioSampleType) != instance->activeAudioSampleType) {
    KTN_LOG("Audio settings (%u channels, %u bits) differ from the card's (%u channels, %u bits) since activation",
            settings.audioChannels, settings.audioSampleType, instance->activeAudioChannels,
            instance->activeAudioSampleType);
    return EINVAL;
  }
  unsigned long sampleFrames = static_cast<unsigned long>(packet->GetSampleFrameCount());
  unsigned long samples = sampleFrames * settings.audioChannels;
  unsigned long size = samples * (settings.audioSampleType / 8);
  Core::SharedMemory segment(kAudioShmKey);
  void* address = nullptr;
  void* bytes = nullptr;
  if (long rc = OpenSegment(segment, size, packet, address, bytes)) return rc;
  if (settings.audioSampleType == 24) {
    const uint8_t* in = static_cast<const uint8_t*>(bytes);
    uint8_t* out = static_cast<uint8_t*>(address);
    for (unsigned long i = 0; i < samples; ++i, in += 4, out += 3) {
      out[0] = in[1];
      out[1] = in[2];
      out[2] = in[3];
    }
  } else {
    memcpy(address, bytes, size);
  }
  if (long rc = instance->recordClient->MapAudio(size)) {
    KTN_LOG("MapAudio returned %ld", rc);
    return rc;
  }
  packet->Release();
  return 0;
}

}  // namespace

int32_t recPrepRecord8(CapPriv* instance, recCapParmsRec8* parms) {
  if (!instance || !instance->recordClient || !parms) {
    KTN_LOG("Invalid capPtr %p or uninitialised record client", static_cast<void*>(instance));
    return rmBadParameter;
  }
  std::string path;
  if (!Utf16ToUtf8(parms->path, kRecordPathUnits, path)) {
    KTN_LOG("The movie path is not NUL-terminated UTF-16 of at most %d units", kRecordPathUnits - 1);
    return rmBadParameter;
  }
  if (long rc = CreateEmptyFile(path.c_str())) {
    KTN_LOG("Failed to create file %s: errno %ld (%s)", path.c_str(), rc, strerror(static_cast<int>(rc)));
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
      Util::LogFailure(__func__, __LINE__, "%s returned %ld\n", command.name, rc);
      return static_cast<int32_t>(rc);
    }
  }

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
  if (AboveThirtyFrames(s)) instance->frameLimit *= 2;
  instance->started = false;
  instance->deviceControlReady = false;
  instance->startEvent.mSignalled = false;  // a fresh latch for this recording; nobody waits yet
  instance->startTimeCodeString[0] = '\0';
  instance->frameCount = 0;
  return rmNoErr;
}

void FrameArrivedCallback(void* context, IVeldranVideoInputFrame* video, IVeldranAudioInputPacket* audio) {
  CapPriv* instance = static_cast<CapPriv*>(context);
  if (!instance || !instance->apiCapture || !instance->recordClient || !instance->queueLock) {
    KTN_LOG("Invalid capPtr %p or uninitialised apiCapture or recordClient", context);
    return;
  }
  if (!instance->recording) return;
  if (!instance->started) {
    if (!video) return;  // sound before the start is not recorded
    IVeldranTimecode* timecode = nullptr;
    if (video->GetTimecode(ktnTimecodeRP188, &timecode) != kVeldranOK) {
      timecode = nullptr;
      if (video->GetTimecode(ktnTimecodeVITC, &timecode) != kVeldranOK) timecode = nullptr;
    }
    if (instance->frameLimit == 0) {
      // Recording from now on: remember the first frame's timecode for the host.
      instance->started = true;
      if (!timecode) {
        int32_t frameNumber = 0, unused1 = 0, unused2 = 0;
        if (instance->timecodeFunc) instance->timecodeFunc(instance->callbackID, &frameNumber, &unused1, &unused2);
        Util::TimeCode now = instance->inPoint;
        Util::ConvertFrameCountToTimeCode(static_cast<unsigned>(frameNumber), &now);
        Util::ConvertTimeCodeToString(&now, instance->startTimeCodeString);
      } else {
        char* text = nullptr;
        if (timecode->GetString(&text) == kVeldranOK && text) {
          strncpy(instance->startTimeCodeString, text, 31);
          instance->startTimeCodeString[31] = '\0';
          free(text);
        }
        timecode->Release();
      }
    } else if (timecode) {
      // Waiting for the in-point.
      if (timecode->GetBCD() == instance->inPointBCD) instance->started = true;
      timecode->Release();
      if (!instance->started) return;
    } else if (instance->deviceControlReady) {
      if (!instance->deviceControl || instance->deviceControl->CheckStart(video) != kVeldranOK) return;
      instance->started = true;
    } else {
      instance->started = true;  // no timecode and no deck: start at once
    }
    instance->startEvent.Signal(nullptr);
  }
  {
    long rc = 0;
    Core::Lock lock(instance->queueLock, &rc);
    if (rc) KTN_LOG("Lock returned %ld", rc);  // queueing goes on regardless
    if (video) {
      video->AddRef();
      instance->videoQueue->push_back(video);
    }
    if (audio) {
      audio->AddRef();
      instance->audioQueue->push_back(audio);
    }
  }
  ++instance->frameCount;
}

namespace {

// Puts items a failed hand-over did not consume back at the front of their queues.
void Requeue(CapPriv* instance, IVeldranVideoInputFrame* frame, IVeldranAudioInputPacket* packet) {
  long rc = 0;
  Core::Lock lock(instance->queueLock, &rc);
  if (rc) KTN_LOG("Lock returned %ld", rc);
  if (frame) instance->videoQueue->push_front(frame);
  if (packet) instance->audioQueue->push_front(packet);
}

}  // namespace

int32_t recServiceRecord(CapPriv* instance) {
  if (!instance || !instance->recording) return rmNoErr;
  if (!instance->recordClient || !instance->queueLock) {
    KTN_LOG("Invalid capPtr %p or uninitialised record client", static_cast<void*>(instance));
    return rmBadParameter;
  }
  int64_t handedOver = 0;  // the frame count when the queues were last found empty
  for (;;) {
    IVeldranVideoInputFrame* frame = nullptr;
    IVeldranAudioInputPacket* packet = nullptr;
    {
      long rc = 0;
      Core::Lock lock(instance->queueLock, &rc);
      if (rc) KTN_LOG("Lock returned %ld", rc);
      if (!instance->videoQueue->empty()) {
        frame = instance->videoQueue->front();
        instance->videoQueue->pop_front();
      }
      if (!instance->audioQueue->empty()) {
        packet = instance->audioQueue->front();
        instance->audioQueue->pop_front();
      }
      // Read with the queues empty and under their lock: the device thread counts a frame
      // only after queueing it, so every frame this count includes has been handed over.
      if (!frame && !packet) handedOver = instance->frameCount;
    }
    if (!frame && !packet) break;
    // A failure ends the loop; the items of that round keep their references and go back
    // to the front of their queues, where the flush at close record releases them.
    if (frame) {
      if (long rc = HandOverVideo(instance, frame)) {
        Requeue(instance, frame, packet);
        return static_cast<int32_t>(rc);
      }
    }
    if (packet) {
      if (long rc = HandOverAudio(instance, packet)) {
        Requeue(instance, nullptr, packet);
        return static_cast<int32_t>(rc);
      }
    }
  }
  // Both queues are empty: report. The warning's count is deliberately not halved.
  int32_t result = 0;
  if (instance->statusFunc) {
    if (!(instance->reportDroppedFrames && instance->droppedFrames)) {
      int64_t count = handedOver;
      if (AboveThirtyFrames(instance->settings)) count /= 2;
      result = instance->statusFunc(instance->callbackID, kRecordingText, count);
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
  for (IVeldranVideoInputFrame* frame : *instance->videoQueue) frame->Release();
  instance->videoQueue->clear();
  for (IVeldranAudioInputPacket* packet : *instance->audioQueue) packet->Release();
  instance->audioQueue->clear();
}

int32_t recStopRecord(CapPriv* instance) {
  if (!instance || !instance->recordClient) {
    KTN_LOG("Invalid capPtr %p or uninitialised record client", static_cast<void*>(instance));
    return rmBadParameter;
  }
  instance->recording = false;  // first, so that the device thread queues nothing more
  if (long rc = instance->recordClient->Stop()) {
    KTN_LOG("Stop returned %ld", rc);
    return static_cast<int32_t>(rc);
  }
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
  long rc = instance->recordClient->Stop();
  if (rc) KTN_LOG("Stop returned %ld", rc);
  if (instance->queueLock) flush(instance);
  return static_cast<int32_t>(rc);
}

}  // namespace KTN
