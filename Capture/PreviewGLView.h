// The OpenGL view of the live preview, placed in the host's capture window (Qt on Linux).
#pragma once

#include <QOpenGLWidget>
#include <array>
#include <mutex>
#include <optional>

#include "DeviceAPI/VeldranAPI.h"
#include "HostAPI/HostInterface.h"

namespace KTN {

// Drawn by the card's OpenGL preview helper. updateVideoFrame may be called on any thread
// (the card's preview thread); everything else on the GUI thread. Placed over all of its
// host's view, it follows that view's size by itself.
class PreviewGLView : public QOpenGLWidget {
  Q_OBJECT

 public:
  // The tag a leftover preview view is found by in a host's view: 'KTNW'.
  static constexpr uint32_t kTag = 0x4B544E57;
  static const char* const kTagName;  // its object name

  // A view in parent with the card's preview helper, or null (logged) when there is none.
  static PreviewGLView* Create(QWidget* parent);
  ~PreviewGLView() override;

  uint32_t tag() const { return kTag; }

  // Hands the helper the frame and asks for a repaint on the GUI thread.
  void updateVideoFrame(IVeldranVideoFrame* frame);
  // The projection: the part of the picture shown, (0, 0, 1, 1) being all of it.
  void setView(const prFloatRect* rect);
  // The projection's bounds as given to glOrtho: left, right, bottom, top.
  std::array<double, 4> Projection();
  // Clears, and sets the viewport from the display rectangle (x is its second integer, y
  // its first, width and height the third and fourth).
  void setDisplay(const pmDisplayPos* display);
  // The viewport every paint sets: x, y, width, height in device pixels. The last display
  // rectangle's values as they came, or the whole view before the first one.
  std::array<int, 4> Viewport();
  // Shows the view over all of host, taken out of any earlier host. The view stays its
  // previewer's: when host goes, it takes the view out instead of deleting it.
  void placeIn(QWidget* host);
  // Takes a view out of its host's view and hides it, without deleting it: whoever made it
  // still holds it.
  static void TakeOut(QWidget* view);
  // Takes the view out of its host's view and deletes it on the GUI thread, later. Only
  // the view's previewer calls it.
  void sayonara();

 protected:
  void initializeGL() override;
  void paintGL() override;
  // Watches the view it is in: when that view changes size, this view takes its new size.
  bool event(QEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  PreviewGLView(QWidget* parent, IVeldranGLScreenPreviewHelper* helper);
  void ApplyState();

  // Guards every use of the view's OpenGL context.
  std::recursive_mutex mLock;
  IVeldranGLScreenPreviewHelper* mVeldranScreenPreview;  // one reference
  std::optional<std::array<int, 4>> mViewport;           // x, y, width, height; none until the first display
  std::array<double, 4> mOrtho = {-1, 1, -1, 1};         // left, right, bottom, top
  QMetaObject::Connection mHostGone;                     // the current host's destroyed signal to TakeOut
};

}  // namespace KTN
