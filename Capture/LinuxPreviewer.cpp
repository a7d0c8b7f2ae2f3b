// The preview on Linux.
#include "Capture/LinuxPreviewer.h"

#include "Util/Log.h"

namespace KTN {

Previewer* Previewer::Create() {
  return new LinuxPreviewer;
}

VeldranResult LinuxPreviewer::DrawFrame(IVeldranVideoFrame*) {
  return 0;  // no view to draw into: the frame is dropped
}

void LinuxPreviewer::SetDisplay(pmDisplayPos* display) {
  if (!display) {
    KTN_LOG("Invalid disp pointer");
    return;
  }
  mHostView = display->window;
}

void LinuxPreviewer::SetView(prFloatRect* rect) {
  if (!rect) KTN_LOG("Invalid view pointer");
}

}  // namespace KTN
