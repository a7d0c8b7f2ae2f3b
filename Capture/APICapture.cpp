// The input side of the first capture card.
#include "Capture/APICapture.h"

#include <errno.h>

#include "Capture/VeldranAPILoader.h"
#include "DeviceAPI/VeldranObject.h"
#include "Util/DeviceResult.h"
#include "Util/Log.h"
#include "Util/Printer.h"

namespace KTN {

namespace {

// The recordable pixel formats, probed in this order.
const unsigned kFormatSet[] = {ktnFormat8BitYUV, ktnFormat10BitYUV, ktnFormat10BitRGB};

}  // namespace

APICapture::~APICapture() {
  if (!mInput) return;
  if (VeldranResult rc = mInput->StopStreams()) KTN_LOG("StopStreams returned %ld (0x%lx)", static_cast<long>(rc), Util::DeviceHex(rc));
  if (long rc = Disable()) KTN_LOG("Disable returned %ld (0x%lx)", rc, Util::DeviceHex(rc));
  if (VeldranResult rc = mInput->SetCallback(nullptr)) KTN_LOG("SetCallback returned %ld (0x%lx)", static_cast<long>(rc), Util::DeviceHex(rc));
  mInput->Release();
  mInput = nullptr;
}

void APICapture::Unregister() {
  if (!mInput || !mRegistered) return;
  if (VeldranResult rc = mInput->SetCallback(nullptr)) {
    KTN_LOG("SetCallback returned %ld (0x%lx)", static_cast<long>(rc), Util::DeviceHex(rc));
    return;
  }
  mRegistered = false;
}

long APICapture::Init() {
  if (long rc = FindVeldranInput()) {
    KTN_LOG("GetVeldranInput returned %ld (0x%lx)", rc, Util::DeviceHex(rc));
    return rc;
  }
  if (VeldranResult rc = mInput->SetCallback(this)) {
    KTN_LOG("SetCallback returned %ld (0x%lx)", static_cast<long>(rc), Util::DeviceHex(rc));
    return rc;
  }
  mRegistered = true;
  return 0;
}

long APICapture::FindVeldranInput() {
  VeldranReleaser<IVeldranIterator> iterator{CreateVeldranIteratorInstance()};
  if (!iterator.object) {
    KTN_LOG("CreateVeldranIteratorInstance failed");
    return ENOENT;
  }
  VeldranReleaser<IVeldran> device;
  if (VeldranResult rc = iterator.object->Next(&device.object)) {
    KTN_LOG("Iterator->Next returned %ld (0x%lx): Veldran hardware not found", static_cast<long>(rc), Util::DeviceHex(rc));
    return rc;
  }
  void* input = nullptr;
  if (VeldranResult rc = device.object->QueryInterface(IID_IVeldranInput, &input)) return rc;
  mInput = static_cast<IVeldranInput*>(input);
  return 0;
}

long APICapture::GetSupportedModes(IVeldranDisplayMode** modes, unsigned* len) {
  if (!mInput) {
    KTN_LOG("VeldranInput not available");
    return EINVAL;
  }
  if (!modes || !len) {
    KTN_LOG("Invalid arguments: modes %p, len %p", static_cast<void*>(modes), static_cast<void*>(len));
    return EINVAL;
  }
  if (*len == 0) {
    KTN_LOG("Zero-length array provided");
    return EINVAL;
  }
  VeldranReleaser<IVeldranDisplayModeIterator> iterator;
  if (VeldranResult rc = mInput->GetDisplayModeIterator(&iterator.object)) {
    KTN_LOG("GetDisplayModeIterator returned %ld (0x%lx)", static_cast<long>(rc), Util::DeviceHex(rc));
    return rc;
  }
  unsigned stored = 0;
  while (stored < *len && iterator.object->Next(&modes[stored]) == 0) ++stored;
  *len = stored;
  return 0;
}

long APICapture::GetFieldDominance(unsigned mode, uint32_t* dominance) {
  if (!dominance) {
    KTN_LOG("Invalid arguments: dominance %p", static_cast<void*>(dominance));
    return EINVAL;
  }
  IVeldranDisplayMode* modes[kMaxDisplayModes];
  unsigned len = kMaxDisplayModes;
  if (long rc = GetSupportedModes(modes, &len)) return rc;
  long rc = ENOENT;
  for (unsigned i = 0; i < len; ++i) {
    if (rc == ENOENT && modes[i]->GetDisplayMode() == mode) {
      *dominance = modes[i]->GetFieldDominance();
      rc = 0;
    }
    modes[i]->Release();
  }
  if (rc) KTN_LOG("The input lists no display mode %s", Util::Printer::Fcc(static_cast<int>(mode)));
  return rc;
}

long APICapture::GetSupportedFormatsForMode(unsigned mode, unsigned* formats, unsigned* len) {
  if (!mInput) {
    KTN_LOG("VeldranInput not available");
    return EINVAL;
  }
  if (!formats || !len) {
    KTN_LOG("Invalid arguments: formats %p, len %p", static_cast<void*>(formats), static_cast<void*>(len));
    return EINVAL;
  }
  if (*len == 0) {
    KTN_LOG("Zero-length array provided");
    return EINVAL;
  }
  unsigned stored = 0;
  for (unsigned format : kFormatSet) {
    if (stored >= *len) break;
    uint32_t support = ktnSupportNone;
    if (VeldranResult rc = mInput->DoesSupportVideoMode(mode, format, ktnInputFlagDefault, &support, nullptr)) {
      KTN_LOG("DoesSupportVideoMode returned %ld (0x%lx)", static_cast<long>(rc), Util::DeviceHex(rc));
      return rc;
    }
    if (support == ktnSupportNative) formats[stored++] = format;
  }
  *len = stored;
  return 0;
}

long APICapture::EnableVideoInMode(unsigned mode, unsigned format) {
  if (!mInput) {
    KTN_LOG("VeldranInput not available");
    return EINVAL;
  }
  uint32_t support = ktnSupportNone;
  if (VeldranResult rc = mInput->DoesSupportVideoMode(mode, format, ktnInputFlagDefault, &support, nullptr)) {
    KTN_LOG("DoesSupportVideoMode returned %ld (0x%lx)", static_cast<long>(rc), Util::DeviceHex(rc));
    return rc;
  }
  // Conversion on the card is not good enough for recording: only native support counts.
  if (support != ktnSupportNative) {
    KTN_LOG("Unsupported video mode %s, format %s", Util::Printer::Fcc(static_cast<int>(mode)),
            Util::Printer::PixelFormat(format));
    return kUnsupportedModeStatus;
  }
  VeldranResult rc = mInput->EnableVideoInput(mode, format, ktnInputFlagEnableFormatDetection);
  if (rc == kVeldranInvalidArg) rc = mInput->EnableVideoInput(mode, format, ktnInputFlagDefault);  // cannot detect
  if (rc) {
    KTN_LOG("EnableVideoInput returned %ld (0x%lx)", static_cast<long>(rc), Util::DeviceHex(rc));
    return rc;
  }
  return 0;
}

long APICapture::EnableAudioInMode(unsigned rate, unsigned type, unsigned channels) {
  if (channels != 2 && channels != 8 && channels != 16) {
    KTN_LOG("Invalid channel count %u", channels);
    return EINVAL;
  }
  if (!mInput) {
    KTN_LOG("VeldranInput not available");
    return EINVAL;
  }
  if (VeldranResult rc = mInput->EnableAudioInput(rate, type, channels)) {
    KTN_LOG("EnableAudioInput returned %ld", static_cast<long>(rc));
    return rc;
  }
  return 0;
}

long APICapture::Disable() {
  if (!mInput) {
    KTN_LOG("VeldranInput not available");
    return EINVAL;
  }
  if (VeldranResult rc = mInput->DisableVideoInput()) {
    KTN_LOG("DisableVideoInput returned %ld (0x%lx)", static_cast<long>(rc), Util::DeviceHex(rc));
  }
  VeldranResult rc = mInput->DisableAudioInput();
  if (rc) KTN_LOG("DisableAudioInput returned %ld (0x%lx)", static_cast<long>(rc), Util::DeviceHex(rc));
  return rc;
}

long APICapture::Start(FrameArrivedFunc callback, void* context) {
  if (!mInput) {
    KTN_LOG("VeldranInput not available");
    return EINVAL;
  }
  if (VeldranResult rc = mInput->StartStreams()) {
    KTN_LOG("StartStreams returned %ld (0x%lx)", static_cast<long>(rc), Util::DeviceHex(rc));
    return rc;
  }
  // Stored only now: frames that arrive while the streams start are dropped.
  std::lock_guard<std::mutex> guard(mCallbackLock);
  mCallback = callback;
  mContext = context;
  return 0;
}

long APICapture::Stop() {
  if (!mInput) {
    KTN_LOG("VeldranInput not available");
    return EINVAL;
  }
  if (VeldranResult rc = mInput->StopStreams()) {
    KTN_LOG("StopStreams returned %ld (0x%lx)", static_cast<long>(rc), Util::DeviceHex(rc));
    return rc;
  }
  std::lock_guard<std::mutex> guard(mCallbackLock);
  mCallback = nullptr;
  mContext = nullptr;
  return 0;
}

VeldranResult APICapture::QueryInterface(VeldranIID, void**) {
  return kVeldranNotImplemented;
}

int32_t APICapture::AddRef() {
  return Retain();
}

VeldranResult APICapture::VideoInputFormatChanged(uint32_t, IVeldranDisplayMode*, uint32_t) {
  // Deliberately ignored: a recording keeps the mode it was configured with.
  return kVeldranOK;
}

VeldranResult APICapture::VideoInputFrameArrived(IVeldranVideoInputFrame* video, IVeldranAudioInputPacket* audio) {
  FrameArrivedFunc callback;
  void* context;
  {
    std::lock_guard<std::mutex> guard(mCallbackLock);
    callback = mCallback;
    context = mContext;
  }
  // Stop clears the pair only once the card's StopStreams has returned, after which no
  // frame arrives: the context stays valid for this call.
  if (callback) callback(context, video, audio);
  return kVeldranOK;
}

}  // namespace KTN
