// The preview on Linux: frames go to a view placed in the host's window.
#pragma once

#include "Capture/Previewer.h"

namespace KTN {

// Until a view exists (the host has given no window), frames are dropped silently.
class LinuxPreviewer : public Previewer {
 public:
  VeldranResult DrawFrame(IVeldranVideoFrame* frame) override;
  void SetDisplay(pmDisplayPos* display) override;
  void SetView(prFloatRect* rect) override;
  void EnableSafeMargin(bool) override {}

 protected:
  ~LinuxPreviewer() override = default;

 private:
  void* mHostView = nullptr;  // the host's view from the last display position, borrowed
};

}  // namespace KTN
