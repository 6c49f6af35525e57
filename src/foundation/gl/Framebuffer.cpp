#include "foundation/gl/Framebuffer.h"

#include <epoxy/gl.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "foundation/gl/GLContext.h"

namespace qva {

std::optional<Framebuffer> Framebuffer::create(int width, int height, TextureTarget target, bool depth) {
  GLint maximum = 0;
  glGetIntegerv(target == TextureTarget::Rectangle ? GL_MAX_RECTANGLE_TEXTURE_SIZE : GL_MAX_TEXTURE_SIZE,
                &maximum);
  if (width <= 0 || height <= 0 || width > maximum || height > maximum) {
    return std::nullopt;
  }
  GLContext::takeError();
  const GLenum glTarget = GLContext::glTarget(target);
  GLint previousTexture = 0;
  glGetIntegerv(target == TextureTarget::Rectangle ? GL_TEXTURE_BINDING_RECTANGLE : GL_TEXTURE_BINDING_2D,
                &previousTexture);
  GLuint texture = 0;
  glGenTextures(1, &texture);
  glBindTexture(glTarget, texture);
  GLContext::specifyTexture(glTarget, width, height, nullptr);
  glBindTexture(glTarget, static_cast<GLuint>(previousTexture));
  const TextureView made{texture, target, width, height, false};
  GLContext::resetSampling(made);
  auto result = adopt(made);
  if (!result || (depth && !result->attachDepth())) {
    return std::nullopt;
  }
  return result;
}

std::optional<Framebuffer> Framebuffer::adopt(const TextureView& texture) {
  Framebuffer result;
  result.width_ = texture.width;
  result.height_ = texture.height;
  result.target_ = texture.target;
  result.texture_ = texture.name;
  GLint previousFramebuffer = 0;
  glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &previousFramebuffer);
  glGenFramebuffers(1, &result.framebuffer_);
  glBindFramebuffer(GL_FRAMEBUFFER, result.framebuffer_);
  glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GLContext::glTarget(texture.target),
                         texture.name, 0);
  const bool complete = glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
  glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(previousFramebuffer));
  if (!complete || GLContext::takeError() != 0) {
    return std::nullopt;
  }
  return result;
}

bool Framebuffer::attachDepth() {
  if (depth_ != 0) {
    return true;
  }
  GLint previousFramebuffer = 0;
  glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &previousFramebuffer);
  GLint previousRenderbuffer = 0;
  glGetIntegerv(GL_RENDERBUFFER_BINDING, &previousRenderbuffer);
  GLContext::takeError();
  glGenRenderbuffers(1, &depth_);
  glBindRenderbuffer(GL_RENDERBUFFER, depth_);
  glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, width_, height_);
  glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
  glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, depth_);
  const bool complete = glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
  if (!complete || GLContext::takeError() != 0) {
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, 0);
    glDeleteRenderbuffers(1, &depth_);
    depth_ = 0;
  }
  glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(previousFramebuffer));
  glBindRenderbuffer(GL_RENDERBUFFER, static_cast<GLuint>(previousRenderbuffer));
  return depth_ != 0;
}

Framebuffer::Framebuffer(Framebuffer&& other) noexcept {
  *this = std::move(other);
}

Framebuffer& Framebuffer::operator=(Framebuffer&& other) noexcept {
  if (this != &other) {
    destroy();
    width_ = other.width_;
    height_ = other.height_;
    target_ = other.target_;
    framebuffer_ = std::exchange(other.framebuffer_, 0);
    texture_ = std::exchange(other.texture_, 0);
    depth_ = std::exchange(other.depth_, 0);
    previousFramebuffer_ = other.previousFramebuffer_;
    std::copy(std::begin(other.previousViewport_), std::end(other.previousViewport_), previousViewport_);
  }
  return *this;
}

Framebuffer::~Framebuffer() {
  destroy();
}

void Framebuffer::destroy() {
  if (framebuffer_ != 0) {
    glDeleteFramebuffers(1, &framebuffer_);
  }
  if (texture_ != 0) {
    glDeleteTextures(1, &texture_);
  }
  if (depth_ != 0) {
    glDeleteRenderbuffers(1, &depth_);
  }
  framebuffer_ = texture_ = depth_ = 0;
}

TextureView Framebuffer::texture() const {
  return {texture_, target_, width_, height_, false};
}

std::uint32_t Framebuffer::releaseTexture() {
  if (framebuffer_ != 0) {
    glDeleteFramebuffers(1, &framebuffer_);
    framebuffer_ = 0;
  }
  return std::exchange(texture_, 0);
}

void Framebuffer::bind() {
  glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &previousFramebuffer_);
  glGetIntegerv(GL_VIEWPORT, previousViewport_);
  glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
  glViewport(0, 0, width_, height_);
}

void Framebuffer::fill(const float (&rgba)[4]) {
  glClearTexImage(texture_, 0, GL_RGBA, GL_FLOAT, rgba);
}

void Framebuffer::unbind() {
  glBindFramebuffer(GL_FRAMEBUFFER, static_cast<GLuint>(previousFramebuffer_));
  glViewport(previousViewport_[0], previousViewport_[1], previousViewport_[2], previousViewport_[3]);
}

void Framebuffer::readPixels(int width, int height, std::uint8_t* bytes, std::size_t rowBytes,
                             bool bottomRowFirst) {
  glPixelStorei(GL_PACK_ALIGNMENT, 4);
  glPixelStorei(GL_PACK_ROW_LENGTH, static_cast<GLint>(rowBytes / 4));
  glReadPixels(0, 0, width, height, GL_BGRA, GL_UNSIGNED_INT_8_8_8_8_REV, bytes);
  glPixelStorei(GL_PACK_ROW_LENGTH, 0);
  if (!bottomRowFirst) {
    return;
  }
  const std::size_t length = static_cast<std::size_t>(width) * 4;
  std::vector<std::uint8_t> swap(length);
  for (int top = 0, bottom = height - 1; top < bottom; ++top, --bottom) {
    std::uint8_t* a = bytes + static_cast<std::size_t>(top) * rowBytes;
    std::uint8_t* b = bytes + static_cast<std::size_t>(bottom) * rowBytes;
    std::copy_n(a, length, swap.data());
    std::copy_n(b, length, a);
    std::copy_n(swap.data(), length, b);
  }
}

}  // namespace qva
