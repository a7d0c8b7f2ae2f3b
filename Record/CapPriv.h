// The capture instance: everything one open record module owns, handed back by the host with every call.
#pragma once

#include <stdint.h>

#include <atomic>
#include <deque>

#include "Core/Event.h"
#include "Core/Lockable.h"
#include "DeviceAPI/VeldranAPI.h"
#include "Host/HostInterface.h"
#include "Settings/CaptureSettings.h"
#include "Util/TimeCode.h"

namespace KTN {

class APICapture;
class Previewer;
class QTRecordClient;

// Queued device frames and packets, each entry holding one reference.
typedef std::deque<IVeldranVideoInputFrame*> video_deque_t;
typedef std::deque<IVeldranAudioInputPacket*> audio_deque_t;

constexpr uint32_t kCapPrivMagic = 0x200F1;

// Lives in a block from the host's allocator (constructed there, zero-filled). Every field
// is used on the host's thread; those marked "device thread" are also touched by
// FrameArrivedCallback on the card's capture thread.
struct CapPriv {
  uint32_t interfaceVersion = 0;
  StatusFunc statusFunc = nullptr;
  PrerollFunc prerollFunc = nullptr;
  TimecodeFunc timecodeFunc = nullptr;
  const void* errorSuite = nullptr;            // "Premiere Error Suite" v2, borrowed from the host
  int64_t callbackID = 0;
  uint8_t videoEnabled = 0;
  int64_t frameLimit = 0;                      // device callbacks to record; 0: no limit
  std::atomic<int64_t> frameCount{0};          // device thread: callbacks queued this recording
  uint32_t magic = 0;                          // kCapPrivMagic while open
  IVeldranDeviceControl* deviceControl = nullptr;  // one reference
  APICapture* apiCapture = nullptr;            // owned (one reference)
  Previewer* previewer = nullptr;              // one reference
  QTRecordClient* recordClient = nullptr;      // owned
  bool active = false;
  std::atomic<bool> recording{false};          // device thread reads it
  video_deque_t* videoQueue = nullptr;         // owned; guarded by queueLock
  audio_deque_t* audioQueue = nullptr;         // owned; guarded by queueLock
  Core::Lockable* queueLock = nullptr;         // owned; guards only the two queues
  CaptureSettings settings = {};
  bool abortOnDroppedFrames = false;
  bool reportDroppedFrames = false;
  bool droppedFrames = false;
  Util::TimeCode inPoint = {};
  uint32_t inPointBCD = 0;
  std::atomic<bool> started{false};            // device thread: start condition met
  std::atomic<bool> deviceControlReady{false}; // device thread reads it
  Core::Event startEvent;                      // device thread signals the first accepted frame
  char startTimeCodeString[32] = {};           // device thread writes it before signalling

  // Beyond the host-facing fields: the audio layout the card was enabled with at the last
  // activation, so that a packet is never read past its end when the settings have changed
  // since.
  uint32_t activeAudioChannels = 0;
  uint32_t activeAudioSampleType = 0;          // bits as delivered: 16 or 32
};

}  // namespace KTN
