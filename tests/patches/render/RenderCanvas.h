#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>

#include "foundation/gl/Framebuffer.h"
#include "foundation/gl/GLContext.h"
#include "foundation/image/Bitmap.h"
#include "framework/ExecutionContext.h"

namespace qva {

// A small offscreen canvas for consumer patches: a GL context, a framebuffer with depth, composition
// units from -1 to 1 across and -H/W to H/W up, and a readback of the pixels.
class RenderCanvas {
 public:
  // Nothing, with the reason in error, where no GL context can be made.
  static std::unique_ptr<RenderCanvas> create(int width, int height, std::string& error);

  void begin(ExecutionContext& context, double red = 0, double green = 0, double blue = 0, double alpha = 0);
  // Premultiplied B, G, R, A at a pixel, (0, 0) the top-left one.
  std::array<int, 4> pixel(int x, int y);
  GLContext& gl() { return *gl_; }

 private:
  RenderCanvas(std::unique_ptr<GLContext> gl, Framebuffer target, int width, int height);
  std::unique_ptr<GLContext> gl_;
  Framebuffer target_;
  int width_;
  int height_;
  std::optional<Bitmap> pixels_;
};

}  // namespace qva
