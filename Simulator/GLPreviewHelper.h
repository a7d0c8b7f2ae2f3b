// The simulated card's OpenGL preview helper: keeps the latest frame and paints it.
#pragma once

#include <stdint.h>

#include <mutex>
#include <vector>

#include "DeviceAPI/VeldranObject.h"

namespace KTN {
namespace Sim {

// SetFrame may come from any thread (the card's preview thread); InitializeGL and PaintGL
// run with the view's OpenGL context current, under the view's lock.
class GLPreviewHelper : public VeldranObject<IVeldranGLScreenPreviewHelper> {
 public:
  VeldranResult InitializeGL() override;
  // Draws the frame over the whole viewport with fixed-function OpenGL (a textured quad
  // from -1 to 1 under the current projection); nothing before the first frame.
  VeldranResult PaintGL() override;
  VeldranResult SetFrame(IVeldranVideoFrame* frame) override;

 protected:
  ~GLPreviewHelper() override;

 private:
  // Protects mFrame.
  std::mutex mLock;
  IVeldranVideoFrame* mFrame = nullptr;  // one reference
  unsigned mTexture = 0;
  std::vector<uint8_t> mRGBA;  // the frame converted for the texture; used by PaintGL only
};

}  // namespace Sim
}  // namespace KTN
