#include "foundation/gl/WindowTransform.h"

#include <epoxy/gl.h>

#include <cmath>

namespace qva {

std::optional<WindowTransform> WindowTransform::current() {
  GLdouble projection[16];
  GLdouble modelview[16];
  GLint viewport[4];
  glGetDoublev(GL_PROJECTION_MATRIX, projection);
  glGetDoublev(GL_MODELVIEW_MATRIX, modelview);
  glGetIntegerv(GL_VIEWPORT, viewport);
  double m[16];  // projection × modelview, column-major
  for (int column = 0; column < 4; ++column) {
    for (int row = 0; row < 4; ++row) {
      double sum = 0;
      for (int k = 0; k < 4; ++k) {
        sum += projection[k * 4 + row] * modelview[column * 4 + k];
      }
      m[column * 4 + row] = sum;
    }
  }
  // The clip w of a point of the plane is m[3]·x + m[7]·y + m[15]: affine when it is the same everywhere.
  constexpr double tolerance = 1e-9;
  const double w = m[15];
  if (std::abs(m[3]) > tolerance || std::abs(m[7]) > tolerance || std::abs(w) < tolerance) {
    return std::nullopt;
  }
  const double halfWidth = viewport[2] / 2.0;
  const double halfHeight = viewport[3] / 2.0;
  WindowTransform transform;
  transform.xx = m[0] / w * halfWidth;
  transform.xy = m[4] / w * halfWidth;
  transform.x0 = viewport[0] + (m[12] / w + 1) * halfWidth;
  transform.yx = m[1] / w * halfHeight;
  transform.yy = m[5] / w * halfHeight;
  transform.y0 = viewport[1] + (m[13] / w + 1) * halfHeight;
  return transform;
}

}  // namespace qva
