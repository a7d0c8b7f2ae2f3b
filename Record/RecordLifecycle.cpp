// The capture instance's lifecycle: open, close, activate, options, start, preview placement.
#include <new>
#include <string.h>

#include <memory>
#include <string>

#include "Capture/APICapture.h"
#include "Capture/Previewer.h"
#include "Capture/VeldranAPILoader.h"
#include "Core/Lock.h"
#include "Core/SegmentLock.h"
#include "IPC/QTRecordClient.h"
#include "Record/RecordHandlers.h"
#include "Record/RecordPlatform.h"
#include "Settings/CaptureTables.h"
#include "Settings/SettingsDialog.h"
#include "Util/FourCC.h"
#include "DeviceAPI/VeldranObject.h"
#include "Util/DeviceResult.h"
#include "Util/Log.h"

namespace KTN {

namespace {

const char kErrorSuite[] = "Premiere Error Suite";
constexpr int32_t kErrorSuiteVersion = 2;

bool IsSettingsBlob(const void* blob) {
  if (!blob) return false;
  CaptureSettings settings;
  memcpy(&settings, blob, sizeof settings);
  return settings.signature == kCaptureSettingsSignature && settings.version == kCaptureSettingsVersion;
}

}  // namespace

uint32_t DevicePixelFormat(const CaptureSettings& settings) {
  uint32_t type = settings.codecType;
  return type == ktnFormat8BitYUV || type == ktnFormat10BitYUV || type == ktnFormat10BitRGB ? type : ktnFormat8BitYUV;
}

int32_t recOpen(rmStdParms* stdParms, CapPriv** out, recOpenParms* parms) {
  std::string serverPath = RecordServerPath();
  recMemoryFuncs* memory = MemoryThroughFuncs(stdParms);
  if (!out || !memory || !memory->allocate) return rmBadParameter;
  void* block = memory->allocate(sizeof(CapPriv));
  if (!block) return rmOutOfMemory;
  memset(block, 0, sizeof(CapPriv));
  CapPriv* instance = new (block) CapPriv();
  *out = instance;
  instance->magic = kCapPrivMagic;
  instance->interfaceVersion = static_cast<uint32_t>(stdParms->interfaceVersion);

  if (parms && IsSettingsBlob(parms->settings)) {
    memcpy(&instance->settings, parms->settings, sizeof instance->settings);
  } else {
    instance->settings.SetDefaults();
  }

  int32_t result = rmNoErr;
  VeldranReleaser<IVeldranIterator> iterator{CreateVeldranIteratorInstance()};
  VeldranReleaser<IVeldran> device;
  do {
    void* control = nullptr;
    if (!iterator.object || iterator.object->Next(&device.object) != kVeldranOK || !device.object ||
        device.object->QueryInterface(IID_IVeldranDeviceControl, &control) != kVeldranOK) {
      result = rmNoCaptureDevice;
      break;
    }
    instance->deviceControl = static_cast<IVeldranDeviceControl*>(control);

    // From here failures are logged and the half-built instance is kept: later selectors
    // refuse it through their own checks.
    instance->apiCapture = new APICapture;
    if (long rc = instance->apiCapture->Init()) {
      KTN_LOG("Init() returned %ld (0x%lx)", rc, Util::DeviceHex(rc));
      break;
    }
    instance->previewer = Previewer::Create();
    if (!instance->previewer) {
      KTN_LOG("Failed to create a Previewer object");
      break;
    }
    if (long rc = instance->previewer->Init()) {
      KTN_LOG("Previewer::Init() returned %ld", rc);
      break;
    }
    instance->recordClient = new (std::nothrow) QTRecordClient;
    if (!instance->recordClient) {
      KTN_LOG("Failed to allocate a QTRecordClient object");
      break;
    }
    if (long rc = instance->recordClient->Init(serverPath.c_str())) {
      KTN_LOG("Init returned %ld", rc);
      break;
    }
    // The formats without a vendor take the server's; the table is shared by all instances.
    for (SupportedPixelFormat& format : gSupportedPixelFormats) {
      if (format.codecVendor == 0) {
        format.codecVendor = static_cast<uint32_t>(instance->recordClient->GetCodecManufacturer(static_cast<int>(format.codecType)));
      }
    }
    instance->videoQueue = new (std::nothrow) video_deque_t;
    if (!instance->videoQueue) {
      KTN_LOG("Failed to allocate a video_deque_t object");
      break;
    }
    instance->audioQueue = new (std::nothrow) audio_deque_t;
    if (!instance->audioQueue) {
      KTN_LOG("Failed to allocate a audio_deque_t object");
      break;
    }
    instance->queueLock = new Core::Lockable;
    if (long rc = instance->queueLock->Init()) {
      KTN_LOG("Lockable::Init() returned %ld", rc);
      break;
    }
    if (long rc = instance->recordingLock.Init()) {
      KTN_LOG("Lockable::Init() returned %ld", rc);
      break;
    }
    if (SPBasicSuite* basic = BasicSuite(stdParms)) {
      const void* suite = nullptr;
      if (basic->acquireSuite(kErrorSuite, kErrorSuiteVersion, &suite) == 0) instance->errorSuite = suite;
    }
    if (parms) {
      instance->callbackID = parms->callbackID;
      const CaptureSettings& s = instance->settings;
      if (parms->formatReport && s.timeScale && s.frameDuration) {
        // Twice the width and height, as the host expects them here.
        TimeRecord time = {0, static_cast<int32_t>(s.timeScale), static_cast<int32_t>(s.frameDuration)};
        parms->formatReport(instance->callbackID, static_cast<int32_t>(s.pixelAspectX), static_cast<int32_t>(s.pixelAspectY),
                            static_cast<int32_t>(s.width * 2), static_cast<int32_t>(s.height * 2), 0, time);
      }
    }
    instance->startEvent.Init();
  } while (false);
  return result;
}

int32_t recClose(rmStdParms* stdParms, CapPriv* instance) {
  SPBasicSuite* basic = BasicSuite(stdParms);
  if (basic && instance && instance->magic == kCapPrivMagic && instance->errorSuite) {
    basic->releaseSuite(kErrorSuite, kErrorSuiteVersion);
  }
  if (!instance || instance->magic != kCapPrivMagic) return rmNoErr;
  FinishHandOvers(instance);
  instance->videoSegmentLock.reset();
  instance->audioSegmentLock.reset();
  if (instance->queueLock) {
    flush(instance);
    delete instance->queueLock;
    instance->queueLock = nullptr;
    delete instance->audioQueue;
    instance->audioQueue = nullptr;
    delete instance->videoQueue;
    instance->videoQueue = nullptr;
  }
  long result = 0;
  if (instance->recordClient) {
    if (long rc = instance->recordClient->Stop()) KTN_LOG("Stop returned %ld", rc);
    result = instance->recordClient->Exit();
    if (result) KTN_LOG("Exit returned %ld", result);
    delete instance->recordClient;
    instance->recordClient = nullptr;
  }
  if (instance->previewer) instance->previewer->Release();
  if (instance->apiCapture) {
    instance->apiCapture->Unregister();  // the card lets go of its reference to it
    instance->apiCapture->Release();
  }
  if (instance->deviceControl) instance->deviceControl->Release();
  instance->magic = 0;
  instance->~CapPriv();
  recMemoryFuncs* memory = MemoryThroughFuncs(stdParms);
  if (memory && memory->dispose) memory->dispose(instance);
  return static_cast<int32_t>(result);
}

int32_t recSetActive(CapPriv* instance, long activate) {
  if (!instance || !instance->apiCapture) {
    KTN_LOG("Invalid capPtr %p or uninitialised apiCapture", static_cast<void*>(instance));
    return rmBadParameter;
  }
  APICapture* capture = instance->apiCapture;
  const CaptureSettings& s = instance->settings;
  if (activate && !instance->active) {
    uint32_t pixelFormat = DevicePixelFormat(s);
    if (instance->deviceControl) instance->deviceControl->SetCaptureGeometry(s.width, s.height, s.timeScale, s.frameDuration);
    if (long rc = capture->EnableVideoInMode(s.displayMode, pixelFormat)) {
      KTN_LOG("EnableVideoInMode() returned %ld (0x%lx)", rc, Util::DeviceHex(rc));
      return static_cast<int32_t>(rc);
    }
    unsigned bits = s.audioSampleType == 24 ? 32 : s.audioSampleType;  // 24-bit comes as 32 from the card
    if (long rc = capture->EnableAudioInMode(s.audioSampleRate, bits, s.audioChannels)) {
      KTN_LOG("EnableAudioInMode(%d, %d, %d) returned %ld (0x%lx)", static_cast<int>(s.audioSampleRate),
              static_cast<int>(bits), static_cast<int>(s.audioChannels), rc, Util::DeviceHex(rc));
      return static_cast<int32_t>(rc);
    }
    instance->activeAudioChannels = s.audioChannels;
    instance->activeAudioSampleType = bits;
    if (!instance->previewer) {
      instance->previewer = Previewer::Create();
      if (!instance->previewer) {
        KTN_LOG("Failed to create a Previewer object");
        return rmBadParameter;
      }
      if (long rc = instance->previewer->Init()) {
        KTN_LOG("Previewer::Init() returned %ld", rc);
        return static_cast<int32_t>(rc);
      }
    }
    if (capture->mInput) {
      if (long rc = instance->previewer->Enable(capture->mInput)) {
        KTN_LOG("Enable returned %ld (0x%lx)", rc, Util::DeviceHex(rc));
        return static_cast<int32_t>(rc);
      }
    }
    if (long rc = capture->Start(FrameArrivedCallback, instance)) {
      KTN_LOG("Start() returned %ld (0x%lx)", rc, Util::DeviceHex(rc));
      return static_cast<int32_t>(rc);
    }
    instance->active = true;
    return rmNoErr;
  }
  if (!activate && instance->active) {
    if (long rc = capture->Stop()) {
      KTN_LOG("Stop() returned %ld (0x%lx)", rc, Util::DeviceHex(rc));
      return static_cast<int32_t>(rc);
    }
    if (instance->previewer && capture->mInput) {
      if (long rc = instance->previewer->Disable(capture->mInput)) {
        KTN_LOG("Disable returned %ld (0x%lx)", rc, Util::DeviceHex(rc));
        return static_cast<int32_t>(rc);
      }
      instance->previewer->Release();  // made anew at the next activation
      instance->previewer = nullptr;
    }
    if (long rc = capture->Disable()) {
      KTN_LOG("Disable() returned %ld (0x%lx)", rc, Util::DeviceHex(rc));
      return static_cast<int32_t>(rc);
    }
    instance->active = false;
    return rmNoErr;
  }
  return rmNoErr;
}

int32_t recShowOptions(rmStdParms* stdParms, CapPriv* instance, recSetupParms* parms) {
  if (!parms || parms->flags != 0) return rmNoErr;
  if (!instance) return rmNoErr;
  if (!IsSettingsBlob(parms->settings)) {
    recMemoryFuncs* memory = MemoryThroughSuites(stdParms);
    if (!memory || !memory->allocate) return rmNoErr;
    if (parms->settings && memory->dispose) memory->dispose(parms->settings);
    parms->settings = memory->allocate(kCaptureSettingsBlobSize);
    if (!parms->settings) return rmNoErr;
    memcpy(parms->settings, &instance->settings, kCaptureSettingsBlobSize);
  }
  CaptureSettings* blob = static_cast<CaptureSettings*>(parms->settings);
  std::unique_ptr<SettingsDialog> dialog(SettingsDialog::Create(stdParms, blob));
  if (!dialog) {
    KTN_LOG("Failed to create a Settings dialog");
    return rmNoErr;
  }
  if (long rc = dialog->Run(instance)) {
    KTN_LOG("Settings dialog returned %ld", rc);
  } else if (!dialog->Cancelled()) {
    memcpy(&instance->settings, blob, kCaptureSettingsBlobSize);  // takes effect at the next activation
  }
  return rmNoErr;
}

int32_t recStartRecord(CapPriv* instance, recStartReply* reply) {
  if (!instance || !reply) return rmBadParameter;
  if (!instance->recordingPrepared) {
    // Selector 28 has not configured the server, the in-point and the frame limit: there is
    // nothing to start, and the start timecode would be counted at no rate at all.
    KTN_LOG("Invalid capPtr %p or no prepared recording", static_cast<void*>(instance));
    return rmBadParameter;
  }
  if (instance->prerollFunc) {
    int32_t rc = instance->prerollFunc(instance->callbackID);
    if (rc == 2) return rmPrerollCancelled;
    if (rc) return rmPrerollFailed;
    instance->deviceControlReady = instance->deviceControl && instance->deviceControl->GetReadiness() == kVeldranOK;
  }
  reply->word0 = 1;
  reply->word4 = 1;
  reply->timeScale = instance->settings.timeScale;
  reply->frameDuration = instance->settings.frameDuration;
  instance->recording = true;
  if (instance->frameLimit == 0) {
    instance->deviceControlReady = instance->deviceControl && instance->deviceControl->GetReadiness() == kVeldranOK;
    if (instance->deviceControlReady) {
      HostTimecodeNow(instance, reply->startTimecode);
    } else {
      bool timedOut = false;
      instance->startEvent.TimedWait(1000000, timedOut);  // a time-out is not an error
      // The device thread writes the text under the lock, so that the first frame may still
      // be arriving when the wait has ended.
      Core::Lock lock(&instance->recordingLock);
      if (instance->startTimeCodeString[0]) {
        snprintf(reply->startTimecode, sizeof reply->startTimecode, "%s", instance->startTimeCodeString);
      }
    }
  }
  return rmNoErr;
}

int32_t recSetDisplay(CapPriv* instance, pmDisplayPos* display) {
  if (instance && instance->previewer && instance->settings.height != 0 && display && display->rect[3] != 0) {
    pmDisplayPos copy = *display;
    instance->previewer->SetDisplay(&copy);
    prFloatRect whole = {0, 0, 1, 1};
    instance->previewer->SetView(&whole);
  }
  return rmNoErr;
}

}  // namespace KTN
