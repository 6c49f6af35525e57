#include "patches/scroller/TextScrollerImageProvider.h"

#include <epoxy/gl.h>

#include <cmath>

#include "foundation/gl/GLContext.h"

namespace qva {

TextScrollerImageProvider::TextScrollerImageProvider(std::weak_ptr<const RenderTargets> plugin,
                                                     double renderPosition, bool rightToLeft,
                                                     std::string colorSpace)
    : plugin_(std::move(plugin)),
      renderPosition_(renderPosition),
      rightToLeft_(rightToLeft),
      colorSpace_(std::move(colorSpace)) {
  const auto targets = plugin_.lock();
  width_ = targets ? targets->width : 0;
  height_ = targets ? targets->height : 0;
}

std::int64_t TextScrollerImageProvider::scrollPixel(double renderPosition) {
  // Doubles hold every whole number up to 2^53 exactly; no strip gets that far.
  constexpr double kLargest = 9007199254740992.0;
  if (!(renderPosition > 0)) {
    return 0;
  }
  return static_cast<std::int64_t>(std::min(renderPosition, kLargest));
}

Rect TextScrollerImageProvider::imageBounds() const {
  return {0, 0, static_cast<double>(width()), static_cast<double>(height())};
}

int TextScrollerImageProvider::width() const {
  return plugin_.expired() ? 0 : width_;
}

int TextScrollerImageProvider::height() const {
  return plugin_.expired() ? 0 : height_;
}

double TextScrollerImageProvider::renderTargetToGL(double x) const {
  return x / width_ * 2;
}

bool TextScrollerImageProvider::canRender() const {
  const auto targets = plugin_.lock();
  return targets && targets->slots[0] && targets->slots[0]->textureName != 0 && targets->slots[1] &&
         targets->slots[1]->textureName != 0;
}

void TextScrollerImageProvider::renderTarget(const RenderTargets& targets, std::size_t slot, double x,
                                             double offset, double sliceWidth, bool visibleRowsOnly) const {
  const RenderTarget& target = *targets.slots[slot];
  const Bitmap::Rows rows = visibleRowsOnly ? target.visibleRows : Bitmap::Rows{0, targets.height};
  if (sliceWidth <= 0 || rows.empty()) {
    return;
  }
  // Texel units with (0, 0) at the tile's lower-left corner: the bitmap's first row is its top.
  const TextureView texture{target.textureName, TextureTarget::Texture2D, targets.width, targets.height,
                            true};
  GLContext::bindTexture(texture, 0, false);
  const double left = renderTargetToGL(x) - 1;
  const double right = left + renderTargetToGL(sliceWidth);
  const double bottomTexel = targets.height - rows.bottom;
  const double topTexel = targets.height - rows.top;
  const double bottom = bottomTexel / targets.height * 2 - 1;
  const double top = topTexel / targets.height * 2 - 1;
  glBegin(GL_QUADS);
  glTexCoord2d(offset, bottomTexel);
  glVertex2d(left, bottom);
  glTexCoord2d(offset + sliceWidth, bottomTexel);
  glVertex2d(right, bottom);
  glTexCoord2d(offset + sliceWidth, topTexel);
  glVertex2d(right, top);
  glTexCoord2d(offset, topTexel);
  glVertex2d(left, top);
  glEnd();
  GLContext::unbindTexture(texture, 0);
}

bool TextScrollerImageProvider::render(GLContext& context) const {
  const auto targets = plugin_.lock();
  if (!targets || !canRender() || width_ == 0) {
    return false;
  }
  // Through GLSL rather than fixed-function texturing: see GLContext::texturingProgram.
  const unsigned program = context.texturingProgram(TextureTarget::Texture2D, false);
  if (program == 0) {
    return false;
  }
  glPushAttrib(GL_ENABLE_BIT | GL_TEXTURE_BIT);
  glDisable(GL_DEPTH_TEST);
  GLint previousProgram = 0;
  glGetIntegerv(GL_CURRENT_PROGRAM, &previousProgram);
  glUseProgram(program);
  glUniform1i(glGetUniformLocation(program, "image"), 0);

  const std::int64_t p = scrollPixel(renderPosition_);
  const std::int64_t k = p / width_;
  const auto o = static_cast<double>(p % width_);
  const auto w = static_cast<double>(width_);
  const auto current = static_cast<std::size_t>(k % 2);
  const auto next = static_cast<std::size_t>((k + 1) % 2);
  // A crawl's tiles are mostly transparent; drawing only their text costs a fraction of the whole.
  const bool visibleRowsOnly = GLContext::drawsNothingWhereTransparent();
  if (rightToLeft_) {
    renderTarget(*targets, current, 0, o, w - o, visibleRowsOnly);
    renderTarget(*targets, next, w - o, 0, o, visibleRowsOnly);
  } else {
    renderTarget(*targets, current, o, 0, w - o, visibleRowsOnly);
    renderTarget(*targets, next, 0, w - o, o, visibleRowsOnly);
  }

  glUseProgram(static_cast<GLuint>(previousProgram));
  glPopAttrib();
  return GLContext::takeError() == 0;
}

}  // namespace qva
