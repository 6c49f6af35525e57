#include "patches/media/QVAMovieImageProvider.h"

#include <epoxy/gl.h>

#include "foundation/gl/GLContext.h"

namespace qva {

namespace {

// The clean corners of the frame, in the image's own texture coordinates: (0, 0) at the lower left.
constexpr QVAMovieImageProvider::TexturePoint kLowerLeft{0, 0};
constexpr QVAMovieImageProvider::TexturePoint kLowerRight{1, 0};
constexpr QVAMovieImageProvider::TexturePoint kUpperRight{1, 1};
constexpr QVAMovieImageProvider::TexturePoint kUpperLeft{0, 1};

}  // namespace

QVAMovieImageProvider::QVAMovieImageProvider(std::shared_ptr<const MovieTexture> texture, bool mirrorXAxis,
                                             bool mirrorYAxis)
    : texture_(std::move(texture)), mirrorXAxis_(mirrorXAxis), mirrorYAxis_(mirrorYAxis) {}

Rect QVAMovieImageProvider::imageBounds() const {
  return {0, 0, static_cast<double>(width()), static_cast<double>(height())};
}

const std::string& QVAMovieImageProvider::imageColorSpace() const {
  static const std::string genericRgb = "Generic RGB";
  return genericRgb;
}

std::array<QVAMovieImageProvider::TexturePoint, 4> QVAMovieImageProvider::cornerCoordinates() const {
  if (mirrorXAxis_ && mirrorYAxis_) {
    return {kUpperRight, kLowerRight, kLowerLeft, kUpperLeft};
  }
  if (mirrorXAxis_) {
    return {kUpperLeft, kLowerLeft, kLowerRight, kUpperRight};
  }
  if (mirrorYAxis_) {
    return {kLowerRight, kUpperRight, kUpperLeft, kLowerLeft};
  }
  return {kLowerLeft, kUpperLeft, kUpperRight, kLowerRight};
}

std::optional<TextureView> QVAMovieImageProvider::texture() const {
  if (mirrorXAxis_ || mirrorYAxis_) {
    return std::nullopt;
  }
  return texture_->view();
}

bool QVAMovieImageProvider::render(GLContext& context) const {
  static constexpr double kCorners[4][2] = {{-1, -1}, {-1, 1}, {1, 1}, {1, -1}};
  const std::array<TexturePoint, 4> coordinates = cornerCoordinates();
  glPushAttrib(GL_ENABLE_BIT | GL_TEXTURE_BIT | GL_CURRENT_BIT);
  glColor4d(1, 1, 1, 1);
  const TextureView& texture = texture_->view();
  GLContext::bindTexture(texture, 0, true);
  GLContext::tintTexturing(1, 1, 1, 1);
  // The same pixels through GLSL, which the software rasterizer draws much faster (see
  // GLContext::texturingProgram).
  const unsigned program = context.texturingProgram(texture.target, false);
  GLint previousProgram = 0;
  glGetIntegerv(GL_CURRENT_PROGRAM, &previousProgram);
  glUseProgram(program);
  if (program != 0) {
    glUniform1i(glGetUniformLocation(program, "image"), 0);
  }
  glBegin(GL_QUADS);
  for (int corner = 0; corner < 4; ++corner) {
    glTexCoord2d(coordinates[corner].s, coordinates[corner].t);
    glVertex2d(kCorners[corner][0], kCorners[corner][1]);
  }
  glEnd();
  glUseProgram(static_cast<GLuint>(previousProgram));
  GLContext::unbindTexture(texture, 0);
  glPopAttrib();
  return glGetError() == GL_NO_ERROR;
}

}  // namespace qva
