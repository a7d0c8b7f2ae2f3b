// The simulated card's OpenGL preview helper.
#include "Simulator/GLPreviewHelper.h"

#include <GL/gl.h>

#include "Simulator/PixelRows.h"

namespace KTN {
namespace Sim {

GLPreviewHelper::~GLPreviewHelper() {
  if (mFrame) mFrame->Release();
  // The texture belongs to a context that may be gone; it goes with the context.
}

VeldranResult GLPreviewHelper::InitializeGL() {
  glGenTextures(1, &mTexture);
  glBindTexture(GL_TEXTURE_2D, mTexture);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
  return kVeldranOK;
}

VeldranResult GLPreviewHelper::SetFrame(IVeldranVideoFrame* frame) {
  ExchangeReference(mLock, mFrame, frame);
  return kVeldranOK;
}

VeldranResult GLPreviewHelper::PaintGL() {
  IVeldranVideoFrame* frame;
  {
    std::lock_guard<std::mutex> guard(mLock);
    frame = mFrame;
    if (frame) frame->AddRef();
  }
  if (!frame) return kVeldranOK;
  int width = frame->GetWidth(), height = frame->GetHeight();
  void* bytes = nullptr;
  if (frame->GetBytes(&bytes) == kVeldranOK && width > 0 && height > 0 && width <= 8192) {
    mRGBA.resize(static_cast<size_t>(width) * height * 4);
    bool hd = height > 576;
    for (int y = 0; y < height; ++y) {
      RowToRGBA(frame->GetPixelFormat(), static_cast<const uint8_t*>(bytes) + static_cast<size_t>(y) * frame->GetRowBytes(),
                width, hd, &mRGBA[static_cast<size_t>(y) * width * 4]);
    }
    if (!mTexture) InitializeGL();
    glBindTexture(GL_TEXTURE_2D, mTexture);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE, mRGBA.data());
    glEnable(GL_TEXTURE_2D);
    glColor4f(1, 1, 1, 1);
    // Row 0 is the top of the picture.
    glBegin(GL_QUADS);
    glTexCoord2f(0, 1), glVertex2f(-1, -1);
    glTexCoord2f(1, 1), glVertex2f(1, -1);
    glTexCoord2f(1, 0), glVertex2f(1, 1);
    glTexCoord2f(0, 0), glVertex2f(-1, 1);
    glEnd();
    glDisable(GL_TEXTURE_2D);
  }
  frame->Release();
  return kVeldranOK;
}

}  // namespace Sim
}  // namespace KTN
