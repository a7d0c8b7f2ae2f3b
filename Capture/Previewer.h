// The live preview: the device API's screen-preview callback that draws the incoming picture.
#pragma once

#include <atomic>

#include "Core/Refcounted.h"
#include "DeviceAPI/VeldranAPI.h"
#include "HostAPI/HostInterface.h"

namespace KTN {

// Reference counted (created with a count of 1). Only one previewer is registered with a
// device at a time (sCurrent). Registration runs on the host's thread; DrawFrame on the
// card's preview thread.
class Previewer : public IVeldranScreenPreviewCallback, public Core::Refcounted {
 public:
  // A new previewer of this platform (count 1), or null.
  static Previewer* Create();

  VeldranResult QueryInterface(VeldranIID iid, void** out) override;
  int32_t AddRef() override;
  // One Release for both bases: the last one destroys the previewer.
  int32_t Release() override;
  VeldranResult DrawFrame(IVeldranVideoFrame* frame) override = 0;

  virtual long Init();
  // Registers this previewer with the device (a null device changes nothing): sCurrent
  // first, then the device's SetScreenPreviewCallback.
  virtual long Enable(IVeldranInput* input);
  // Unregisters, but only while this previewer is sCurrent, so a replaced previewer cannot
  // unregister its successor.
  virtual long Disable(IVeldranInput* input);
  virtual long Enable(IVeldranOutput* output);
  virtual long Disable(IVeldranOutput* output);
  // Places the preview in the host's view (borrowed).
  virtual void SetDisplay(pmDisplayPos* display) = 0;
  // The part of the picture to show: (0, 0, 1, 1) is all of it.
  virtual void SetView(prFloatRect* rect) = 0;
  virtual void EnableSafeMargin(bool enable) = 0;
  // Playback is not part of capture: these do nothing.
  virtual long StartPlayback(int speed);
  virtual long StopPlayback(long long position);
  virtual void SetSpeed(int numerator, int denominator);

  // The previewer registered with a device, or null.
  static std::atomic<Previewer*> sCurrent;

 protected:
  ~Previewer() override = default;

 private:
  template <typename Device>
  long Register(Device* device, bool enable, int line);
};

}  // namespace KTN
