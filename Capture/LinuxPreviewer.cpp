// The preview on Linux.
#include "Capture/LinuxPreviewer.h"

#include <QWidget>

#include "Capture/PreviewGLView.h"
#include "Util/Log.h"

namespace KTN {

Previewer* Previewer::Create() {
  return new LinuxPreviewer;
}

LinuxPreviewer::~LinuxPreviewer() {
  if (PreviewGLView* view = mPreviewView.exchange(nullptr)) view->sayonara();
}

VeldranResult LinuxPreviewer::DrawFrame(IVeldranVideoFrame* frame) {
  if (!frame) return 0;
  if (PreviewGLView* view = mPreviewView.load()) view->updateVideoFrame(frame);
  return 0;  // without a view the frame is dropped
}

void LinuxPreviewer::SetDisplay(pmDisplayPos* display) {
  if (!display) {
    KTN_LOG("Invalid disp pointer");
    return;
  }
  mHostView = static_cast<QWidget*>(display->window);
  if (mHostView && !mPreviewView.load()) {
    // Made without a parent: SetView places it in the host's view.
    PreviewGLView* view = PreviewGLView::Create(nullptr);
    if (!view) {
      KTN_LOG("Failed to initialise a PreviewGLView instance");
      return;
    }
    view->setGeometry(mHostView->rect());
    mPreviewView = view;
  }
  if (PreviewGLView* view = mPreviewView.load()) view->setDisplay(display);
}

void LinuxPreviewer::SetView(prFloatRect* rect) {
  PreviewGLView* view = mPreviewView.load();
  QWidget* host = mHostView.data();
  if (host && (!view || view->parentWidget() != host)) {
    // A preview view left by another previewer, anywhere inside the host's view, is taken
    // out of it but not deleted: that previewer still draws into it and deletes it. That
    // holds also when this previewer has no view of its own to put there.
    if (QWidget* leftover = host->findChild<QWidget*>(PreviewGLView::kTagName)) PreviewGLView::TakeOut(leftover);
    if (view) view->placeIn(host);
  }
  if (!rect) {
    KTN_LOG("Invalid view pointer");
    return;
  }
  if (view) view->setView(rect);
}

}  // namespace KTN
