#include "RenderCanvas.h"

#include <epoxy/gl.h>

namespace qva {

std::unique_ptr<RenderCanvas> RenderCanvas::create(int width, int height, std::string& error) {
  auto creation = GLContext::create();
  if (!creation.context) {
    error = creation.error;
    return nullptr;
  }
  auto target = Framebuffer::create(width, height, TextureTarget::Texture2D, true);
  if (!target) {
    error = "no framebuffer";
    return nullptr;
  }
  return std::unique_ptr<RenderCanvas>(
      new RenderCanvas(std::move(creation.context), std::move(*target), width, height));
}

RenderCanvas::RenderCanvas(std::unique_ptr<GLContext> gl, Framebuffer target, int width, int height)
    : gl_(std::move(gl)), target_(std::move(target)), width_(width), height_(height) {}

void RenderCanvas::begin(ExecutionContext& context, double red, double green, double blue, double alpha) {
  pixels_.reset();
  target_.bind();
  const double aspect = static_cast<double>(height_) / width_;
  context.setGLContext(gl_.get());
  context.setBounds({-1, -aspect, 2, 2 * aspect});
  context.setViewport({width_, height_});
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glOrtho(-1, 1, -aspect, aspect, -1, 1);
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  glClearColor(static_cast<float>(red), static_cast<float>(green), static_cast<float>(blue),
               static_cast<float>(alpha));
  glClearDepth(1);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}

std::array<int, 4> RenderCanvas::pixel(int x, int y) {
  if (!pixels_) {
    pixels_ = Bitmap::allocate(width_, height_, Bitmap::paddedRowBytes(width_));
    Framebuffer::readPixels(width_, height_, pixels_->bytes(), pixels_->rowBytes());
  }
  const std::uint8_t* p = pixels_->row(y) + x * 4;
  return {p[0], p[1], p[2], p[3]};
}

}  // namespace qva
