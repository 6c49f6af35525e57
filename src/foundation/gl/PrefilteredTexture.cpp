#include "foundation/gl/PrefilteredTexture.h"

#include <epoxy/gl.h>

#include <cmath>
#include <utility>

#include "foundation/gl/GLContext.h"

namespace qva {

PrefilteredTexture::PrefilteredTexture(Framebuffer target, double levelOfDetail, std::optional<Rows> rows,
                                       Rows sampled)
    : target_(std::move(target)), levelOfDetail_(levelOfDetail), rows_(rows), sampled_(sampled) {}

std::optional<PrefilteredTexture> PrefilteredTexture::bake(std::uint32_t source, int width, int height,
                                                           double levelOfDetail, std::optional<Rows> rows) {
  if (!(levelOfDetail > 0) || levelOfDetail >= 30 || width <= 0 || height <= 0) {
    return std::nullopt;
  }
  const int level = static_cast<int>(std::floor(levelOfDetail));
  const int levelWidth = width >> level;
  const int levelHeight = height >> level;
  // The filter on the source's coordinates from 0 to 1 is bilinear on the cells of a grid of half
  // level-n texels, twice level n's side plus one points a side counting both edges, whatever the
  // source's wrap mode; the bake holds one point a texel and clamps to its edges.
  const bool gridRows = !rows;
  const Rows sampled = rows.value_or(Rows{2 * levelHeight + 1, 0, 1.0 / (2 * levelHeight)});
  if (levelWidth < 2 || levelWidth % 2 != 0 || (gridRows && (levelHeight < 2 || levelHeight % 2 != 0)) ||
      sampled.count < 1 || !std::isfinite(sampled.first) || !std::isfinite(sampled.step) ||
      sampled.step == 0 || (2.0 * levelWidth + 1) * sampled.count > kMaximumTexels) {
    return std::nullopt;
  }
  auto target = Framebuffer::create(2 * levelWidth + 1, sampled.count, TextureTarget::Texture2D, false);
  if (!target) {
    return std::nullopt;
  }
  glPushAttrib(GL_ALL_ATTRIB_BITS);
  GLContext::takeError();
  glActiveTexture(GL_TEXTURE0);
  glBindTexture(GL_TEXTURE_2D, source);
  // Column i of the bake, at pixel centre i + 0.5, holds the filter at i half level-n texels; row k
  // holds it at the row's t.
  const double s0 = -0.5 / (2 * levelWidth);
  const double s1 = (target->width() - 0.5) / (2 * levelWidth);
  const double t0 = sampled.first - 0.5 * sampled.step;
  const double t1 = sampled.first + (sampled.count - 0.5) * sampled.step;
  GLfloat minimumLOD = 0;
  GLfloat maximumLOD = 0;
  GLint minifying = 0;
  glGetTexParameterfv(GL_TEXTURE_2D, GL_TEXTURE_MIN_LOD, &minimumLOD);
  glGetTexParameterfv(GL_TEXTURE_2D, GL_TEXTURE_MAX_LOD, &maximumLOD);
  glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &minifying);
  // Clamping the level of detail to one value fixes it whatever the quad's own derivatives say.
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
  glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MIN_LOD, static_cast<GLfloat>(levelOfDetail));
  glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MAX_LOD, static_cast<GLfloat>(levelOfDetail));
  // Fixed-function texturing reads the enabled target of highest priority, so only 2D stays on.
  glDisable(GL_TEXTURE_CUBE_MAP);
  glDisable(GL_TEXTURE_3D);
  glDisable(GL_TEXTURE_RECTANGLE);
  glEnable(GL_TEXTURE_2D);
  glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
  glDisable(GL_BLEND);
  glDisable(GL_DEPTH_TEST);
  glDisable(GL_ALPHA_TEST);
  glDisable(GL_SCISSOR_TEST);
  glDisable(GL_STENCIL_TEST);
  glDisable(GL_POLYGON_SMOOTH);
  glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
  GLint program = 0;
  glGetIntegerv(GL_CURRENT_PROGRAM, &program);
  glUseProgram(0);
  glMatrixMode(GL_TEXTURE);
  glPushMatrix();
  glLoadIdentity();
  glMatrixMode(GL_PROJECTION);
  glPushMatrix();
  glLoadIdentity();
  glOrtho(0, target->width(), 0, target->height(), -1, 1);
  glMatrixMode(GL_MODELVIEW);
  glPushMatrix();
  glLoadIdentity();

  target->bind();
  glBegin(GL_QUADS);
  glTexCoord2d(s0, t0);
  glVertex2i(0, 0);
  glTexCoord2d(s1, t0);
  glVertex2i(target->width(), 0);
  glTexCoord2d(s1, t1);
  glVertex2i(target->width(), target->height());
  glTexCoord2d(s0, t1);
  glVertex2i(0, target->height());
  glEnd();
  target->unbind();

  glPopMatrix();
  glMatrixMode(GL_PROJECTION);
  glPopMatrix();
  glMatrixMode(GL_TEXTURE);
  glPopMatrix();
  glUseProgram(static_cast<GLuint>(program));
  glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MIN_LOD, minimumLOD);
  glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MAX_LOD, maximumLOD);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, minifying);
  glPopAttrib();
  if (GLContext::takeError() != 0) {
    return std::nullopt;
  }
  return PrefilteredTexture(std::move(*target), levelOfDetail, rows, sampled);
}

void PrefilteredTexture::loadTextureMatrix() const {
  GLint mode = GL_MODELVIEW;
  glGetIntegerv(GL_MATRIX_MODE, &mode);
  glMatrixMode(GL_TEXTURE);
  glLoadIdentity();
  // Source coordinate s is 2n·s half texels from the edge: the centre of the bake's column 2n·s; t is
  // (t − first) / step rows from the first: the centre of that row.
  const double width = target_.width();
  const double count = sampled_.count;
  glTranslated(0.5 / width, (0.5 - sampled_.first / sampled_.step) / count, 0);
  glScaled((width - 1) / width, 1 / (sampled_.step * count), 1);
  glMatrixMode(static_cast<GLenum>(mode));
}

}  // namespace qva
