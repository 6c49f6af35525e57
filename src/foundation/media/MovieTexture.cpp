#include "foundation/media/MovieTexture.h"

#include <epoxy/gl.h>

#include "foundation/gl/GLContext.h"

namespace qva {

std::shared_ptr<MovieTexture> MovieTexture::holding(const MovieFrame& frame,
                                                    const std::shared_ptr<MovieTexture>& reusable) {
  if (frame.bytes == nullptr || frame.width < 1 || frame.height < 1) {
    return nullptr;
  }
  if (reusable && reusable.use_count() == 1 && reusable->view_.width == frame.width &&
      reusable->view_.height == frame.height) {
    reusable->fill(frame);
    return reusable;
  }
  GLuint name = 0;
  glGenTextures(1, &name);
  std::shared_ptr<MovieTexture> texture(
      new MovieTexture(TextureView{name, TextureTarget::Texture2D, frame.width, frame.height, true}));
  GLContext::resetSampling(texture->view_);
  texture->fill(frame);
  return texture;
}

MovieTexture::~MovieTexture() {
  glDeleteTextures(1, &view_.name);
}

void MovieTexture::fill(const MovieFrame& frame) {
  GLint previous = 0;
  glGetIntegerv(GL_TEXTURE_BINDING_2D, &previous);
  glBindTexture(GL_TEXTURE_2D, view_.name);
  glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
  glPixelStorei(GL_UNPACK_ROW_LENGTH, static_cast<GLint>(frame.rowBytes / 4));
  if (filled_) {
    // Refilling keeps the storage: no reallocation, and a plain copy into it.
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, frame.width, frame.height, GL_BGRA, GL_UNSIGNED_INT_8_8_8_8_REV,
                    frame.bytes);
  } else {
    GLContext::specifyTexture(GL_TEXTURE_2D, frame.width, frame.height, frame.bytes);
    filled_ = true;
  }
  glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
  glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(previous));
}

}  // namespace qva
