// The live preview's device registration.
#include "Capture/Previewer.h"

#include "Util/Log.h"

namespace KTN {

std::atomic<Previewer*> Previewer::sCurrent{nullptr};

VeldranResult Previewer::QueryInterface(VeldranIID, void**) {
  return kVeldranNotImplemented;
}

int32_t Previewer::AddRef() {
  return Retain();
}

int32_t Previewer::Release() {
  return Refcounted::Release();
}

long Previewer::Init() {
  return 0;
}

template <typename Device>
long Previewer::Register(Device* device, bool enable, int line) {
  if (!device) return 0;
  if (enable) {
    sCurrent = this;
  } else {
    Previewer* expected = this;
    if (!sCurrent.compare_exchange_strong(expected, nullptr)) return 0;
  }
  long rc = device->SetScreenPreviewCallback(enable ? this : nullptr);
  if (rc) Util::LogFailure(enable ? "Enable" : "Disable", line, "SetScreenPreviewCallback returned %ld\n", rc);
  return rc;
}

long Previewer::Enable(IVeldranInput* input) { return Register(input, true, __LINE__); }
long Previewer::Disable(IVeldranInput* input) { return Register(input, false, __LINE__); }
long Previewer::Enable(IVeldranOutput* output) { return Register(output, true, __LINE__); }
long Previewer::Disable(IVeldranOutput* output) { return Register(output, false, __LINE__); }

long Previewer::StartPlayback(int) {
  return 0;
}

long Previewer::StopPlayback(long long) {
  return 0;
}

void Previewer::SetSpeed(int, int) {}

}  // namespace KTN
