#include "host/Renderer.h"

#include <epoxy/gl.h>

#include <algorithm>
#include <climits>
#include <cmath>

namespace qva {

Renderer::Creation Renderer::create(int width, int height, GLContext::Platform platform) {
  auto creation = GLContext::create(platform);
  if (!creation.context) {
    return {nullptr, creation.error};
  }
  return create(std::move(creation.context), width, height);
}

Renderer::Creation Renderer::create(std::unique_ptr<GLContext> gl, int width, int height) {
  auto canvas = Framebuffer::create(width, height, TextureTarget::Texture2D, false);
  if (!canvas) {
    return {nullptr, "cannot make a " + std::to_string(width) + "x" + std::to_string(height) +
                         " canvas (the size must be positive and within the GL driver's limits)"};
  }
  canvas->bind();
  return {std::unique_ptr<Renderer>(new Renderer(std::move(gl), std::move(*canvas), width, height)), {}};
}

Renderer::Renderer(std::unique_ptr<GLContext> gl, Framebuffer canvas, int width, int height)
    : gl_(std::move(gl)),
      canvas_(std::move(canvas)),
      width_(width),
      height_(height),
      logicalWidth_(width),
      // llvmpipe clears in its drawing threads one 64-pixel tile row at a time, which costs a processor
      // several times what filling the texture in whole rows does.
      fillToClear_(gl_->drawsOnProcessor() && epoxy_gl_version() >= 44) {}

Renderer::~Renderer() {
  gl_->makeCurrent();
}

void Renderer::setLogicalWidth(int logicalWidth) {
  if (logicalWidth > 0) {
    logicalWidth_ = logicalWidth;
  }
}

PixelSize Renderer::logicalViewport() const {
  const double logicalHeight = std::round(height_ / outputScale());
  return {logicalWidth_, static_cast<int>(std::min(logicalHeight, static_cast<double>(INT_MAX)))};
}

Rect Renderer::bounds() const {
  const double aspect = static_cast<double>(height_) / width_;
  return {-1, -aspect, 2, 2 * aspect};
}

void Renderer::beginFrame(ExecutionContext& context, const Color& background) {
  prepareFrame(context, bounds());
  clear(background);
}

void Renderer::prepareFrame(ExecutionContext& context, const Rect& area) {
  canvas_.bind();
  context.setGLContext(gl_.get());
  context.setBounds(area);
  context.setViewport(logicalViewport());
  context.setOutputScale(outputScale());
  context.setDepthBufferProvider([this] { provideDepth(); });
  glMatrixMode(GL_TEXTURE);
  glLoadIdentity();
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  // Upside down in memory, so that the canvas's first row is the top one and reads back without a
  // flip; depth room for sprites placed and turned in z.
  glOrtho(area.x, area.x + area.width, area.y + area.height, area.y, -10, 10);
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  glDisable(GL_DEPTH_TEST);
  glDisable(GL_BLEND);
  glDepthMask(GL_TRUE);
  glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
}

void Renderer::clear(const Color& background) {
  // The background is given with straight alpha; the canvas holds premultiplied colour.
  const float clear[4] = {static_cast<float>(background.red * background.alpha),
                          static_cast<float>(background.green * background.alpha),
                          static_cast<float>(background.blue * background.alpha),
                          static_cast<float>(background.alpha)};
  glClearDepth(1);
  if (fillToClear_) {
    canvas_.fill(clear);
    if (canvas_.hasDepth()) {
      glClear(GL_DEPTH_BUFFER_BIT);
    }
  } else {
    glClearColor(clear[0], clear[1], clear[2], clear[3]);
    glClear(GL_COLOR_BUFFER_BIT | (canvas_.hasDepth() ? GL_DEPTH_BUFFER_BIT : 0));
  }
}

void Renderer::provideDepth() {
  if (canvas_.hasDepth() || !canvas_.attachDepth()) {
    return;
  }
  glPushAttrib(GL_DEPTH_BUFFER_BIT | GL_SCISSOR_BIT);
  glDisable(GL_SCISSOR_TEST);
  glDepthMask(GL_TRUE);
  glClearDepth(1);
  glClear(GL_DEPTH_BUFFER_BIT);
  glPopAttrib();
}

void Renderer::readFrame(std::uint8_t* bytes, std::size_t rowBytes) {
  canvas_.bind();
  Framebuffer::readPixels(width_, height_, bytes, rowBytes, false);
}

void Renderer::beginRead(AsyncReadback& readback) {
  canvas_.bind();
  readback.begin();
}

}  // namespace qva
