// The OpenGL view of the live preview.
#include "Capture/PreviewGLView.h"

#include <GL/gl.h>

#include <QEvent>
#include <QMetaObject>
#include <QSurfaceFormat>

#include "Capture/VeldranAPILoader.h"
#include "Util/Log.h"

namespace KTN {

const char* const PreviewGLView::kTagName = "KTNW";

PreviewGLView* PreviewGLView::Create(QWidget* parent) {
  IVeldranGLScreenPreviewHelper* helper = CreateOpenGLScreenPreviewHelper();
  if (!helper) {
    Util::LogFailure("-[PreviewGLView initWithFrame:]", __LINE__, "CreateOpenGLScreenPreviewHelper failed\n");
    return nullptr;
  }
  return new PreviewGLView(parent, helper);
}

PreviewGLView::PreviewGLView(QWidget* parent, IVeldranGLScreenPreviewHelper* helper)
    : QOpenGLWidget(parent), mVeldranScreenPreview(helper) {
  // The helper draws with fixed-function OpenGL: a compatibility context, double buffered,
  // swapping on the vertical blank.
  QSurfaceFormat format;
  format.setRenderableType(QSurfaceFormat::OpenGL);
  format.setProfile(QSurfaceFormat::CompatibilityProfile);
  format.setVersion(2, 1);
  format.setAlphaBufferSize(8);
  format.setRedBufferSize(8);
  format.setGreenBufferSize(8);
  format.setBlueBufferSize(8);
  // 32 bits of depth are asked for; a platform that has no such buffer gives its deepest
  // (Qt's framebuffer behind the widget has 24), and the view takes what it is given.
  format.setDepthBufferSize(32);
  format.setSwapBehavior(QSurfaceFormat::DoubleBuffer);
  format.setSwapInterval(1);
  setFormat(format);
  setObjectName(kTagName);
  setProperty("tag", kTag);
  setAttribute(Qt::WA_TransparentForMouseEvents);
  if (parent) {
    setGeometry(parent->rect());
    parent->installEventFilter(this);
  }
}

PreviewGLView::~PreviewGLView() {
  std::lock_guard<std::recursive_mutex> guard(mLock);
  if (mVeldranScreenPreview) mVeldranScreenPreview->Release();
}

void PreviewGLView::initializeGL() {
  std::lock_guard<std::recursive_mutex> guard(mLock);
  glEnable(0x84F5);  // rectangle textures
  if (mVeldranScreenPreview) mVeldranScreenPreview->InitializeGL();
}

std::array<int, 4> PreviewGLView::Viewport() {
  std::lock_guard<std::recursive_mutex> guard(mLock);
  if (mViewport) return *mViewport;
  int ratio = static_cast<int>(devicePixelRatioF());
  return {0, 0, width() * ratio, height() * ratio};
}

void PreviewGLView::ApplyState() {
  std::array<int, 4> viewport = Viewport();
  glViewport(viewport[0], viewport[1], viewport[2], viewport[3]);
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glOrtho(mOrtho[0], mOrtho[1], mOrtho[2], mOrtho[3], -1, 1);
  glMatrixMode(GL_MODELVIEW);
}

void PreviewGLView::paintGL() {
  std::lock_guard<std::recursive_mutex> guard(mLock);
  // Qt sets its own viewport before every paint; the display's and the view's come back.
  // The clear colour is the context's own: nothing here sets it.
  ApplyState();
  glClear(GL_COLOR_BUFFER_BIT);
  glLoadIdentity();
  if (mVeldranScreenPreview) mVeldranScreenPreview->PaintGL();
}

bool PreviewGLView::event(QEvent* event) {
  // The view's width and height follow the view it is in, whichever that is.
  if (event->type() == QEvent::ParentAboutToChange && parentWidget()) parentWidget()->removeEventFilter(this);
  if (event->type() == QEvent::ParentChange && parentWidget()) parentWidget()->installEventFilter(this);
  return QOpenGLWidget::event(event);
}

bool PreviewGLView::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::Resize && watched == parentWidget()) setGeometry(parentWidget()->rect());
  return QOpenGLWidget::eventFilter(watched, event);
}

void PreviewGLView::updateVideoFrame(IVeldranVideoFrame* frame) {
  if (!mVeldranScreenPreview) return;
  mVeldranScreenPreview->SetFrame(frame);  // the helper keeps it under its own lock
  QMetaObject::invokeMethod(this, "update", Qt::QueuedConnection);
}

void PreviewGLView::setView(const prFloatRect* rect) {
  std::lock_guard<std::recursive_mutex> guard(mLock);
  // Sums in single precision, then widened, as the projection has always been computed.
  float left = 2 * rect->left - 1, right = 2 * rect->right - 1, bottom = 2 * rect->top - 1, top = 2 * rect->bottom - 1;
  mOrtho = {left, right, bottom, top};
  if (!context()) return;  // applied at the first paint
  makeCurrent();
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glOrtho(mOrtho[0], mOrtho[1], mOrtho[2], mOrtho[3], -1, 1);
  glMatrixMode(GL_MODELVIEW);
  doneCurrent();
}

std::array<double, 4> PreviewGLView::Projection() {
  std::lock_guard<std::recursive_mutex> guard(mLock);
  return mOrtho;
}

void PreviewGLView::setDisplay(const pmDisplayPos* display) {
  std::lock_guard<std::recursive_mutex> guard(mLock);
  mViewport = std::array<int, 4>{display->rect[1], display->rect[0], display->rect[2], display->rect[3]};
  if (!context()) return;
  makeCurrent();
  glColor4f(0, 0, 0, 1);
  glClear(GL_COLOR_BUFFER_BIT);
  glViewport((*mViewport)[0], (*mViewport)[1], (*mViewport)[2], (*mViewport)[3]);
  doneCurrent();
  update();
}

void PreviewGLView::placeIn(QWidget* host) {
  disconnect(mHostGone);
  setParent(host);
  setGeometry(host->rect());
  show();
  // A widget deletes its children when it goes, but it says so first: the view leaves then,
  // and its previewer keeps drawing into it and deletes it.
  mHostGone = connect(host, &QObject::destroyed, this, [this, host] {
    if (parentWidget() == host) TakeOut(this);
  });
}

void PreviewGLView::TakeOut(QWidget* view) {
  view->hide();
  view->setParent(nullptr);
}

void PreviewGLView::sayonara() {
  // Deleted on the GUI thread, whichever thread asks.
  QMetaObject::invokeMethod(
      this,
      [this] {
        TakeOut(this);
        deleteLater();
      },
      Qt::QueuedConnection);
}

}  // namespace KTN
