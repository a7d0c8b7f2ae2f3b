// The preview on Linux: frames go to a PreviewGLView placed in the host's view.
#pragma once

#include <QPointer>
#include <QWidget>
#include <atomic>

#include "Capture/Previewer.h"

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
  // This previewer's own view, made at the first display position with a host view and
  // deleted only by this previewer's destruction; read on the preview thread.
  std::atomic<PreviewGLView*> mPreviewView{nullptr};
  QPointer<QWidget> mHostView;  // from the last display position, borrowed; null once it goes
};

}  // namespace KTN
