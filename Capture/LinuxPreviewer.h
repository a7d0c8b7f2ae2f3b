// The preview on Linux: frames go to a PreviewGLView placed in the host's view.
#pragma once

#include <atomic>

#include "Capture/Previewer.h"

class QWidget;

namespace KTN {

class PreviewGLView;

// Until the host gives a view, frames are dropped silently.
class LinuxPreviewer : public Previewer {
 public:
  // Called on the card's preview thread.
  VeldranResult DrawFrame(IVeldranVideoFrame* frame) override;
  // The host's view is a QWidget*; the preview view is made in it on the first call.
  void SetDisplay(pmDisplayPos* display) override;
  void SetView(prFloatRect* rect) override;
  void EnableSafeMargin(bool) override {}

 protected:
  // The view goes later, on the GUI thread.
  ~LinuxPreviewer() override;

 private:
  std::atomic<PreviewGLView*> mPreviewView{nullptr};  // one per previewer; read on the preview thread
  QWidget* mHostView = nullptr;                       // from the last display position, borrowed
};

}  // namespace KTN
