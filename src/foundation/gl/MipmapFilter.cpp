#include "foundation/gl/MipmapFilter.h"

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>
#include <iterator>

#include "foundation/gl/WindowTransform.h"

namespace qva {

namespace {

// GL's level of detail for the texture (textureWidth × textureHeight texels, under the given texture
// matrix) over the quad (w × h, centred on the modelview's origin, texture coordinates 0 to 1 across
// it) placed in the window as given: log2 of the longest texel step per window pixel, plus the bias.
// Under an affine map that step is the same at every pixel; in perspective (no window transform) it is
// not, and there is no one answer.
std::optional<double> levelOfDetail(const std::optional<WindowTransform>& window, double w, double h,
                                    int textureWidth, int textureHeight, const GLdouble (&texture)[16],
                                    double bias) {
  if (!window || texture[3] != 0 || texture[7] != 0 || texture[15] != 1) {
    return std::nullopt;
  }
  const double determinant = window->xx * window->yy - window->xy * window->yx;
  if (determinant == 0 || w == 0 || h == 0) {
    return std::nullopt;
  }
  // Object units per window pixel along x and along y: the columns of the inverse linear map.
  const double alongX[2] = {window->yy / determinant, -window->yx / determinant};
  const double alongY[2] = {-window->xy / determinant, window->xx / determinant};
  // s runs from 0 to 1 across the width and t from 1 to 0 up the height, then the texture matrix.
  const auto texelStep = [&](const double(&step)[2]) {
    const double s = step[0] / w;
    const double t = -step[1] / h;
    return std::hypot((texture[0] * s + texture[4] * t) * textureWidth,
                      (texture[1] * s + texture[5] * t) * textureHeight);
  };
  const double detail = std::log2(std::max(texelStep(alongX), texelStep(alongY))) + bias;
  // Sizes of infinity or not a number give no level for GL to clamp to.
  return std::isfinite(detail) ? std::optional(detail) : std::nullopt;
}

// The texture's rows (t = 1/2 − y/h on the quad of the level of detail above, under an identity texture
// matrix) that the window's rows sample: one for each row of the viewport whose centre the quad may
// cover, and one more each side. Nothing where t changes along a window row, as when the quad is turned
// in the window's plane, or where the quad covers no row.
std::optional<PrefilteredTexture::Rows> windowRows(const WindowTransform& window, double h) {
  // With yx 0, object y, and so t, follows from window y alone: y = (window y − y0) / yy.
  const double scale = window.yy * h;
  if (window.yx != 0 || !std::isfinite(scale) || scale == 0) {
    return std::nullopt;
  }
  GLint viewport[4];
  glGetIntegerv(GL_VIEWPORT, viewport);
  const double extent = std::abs(scale) / 2;
  const double lowest = std::max(std::ceil(window.y0 - extent - 0.5) - 1, static_cast<double>(viewport[1]));
  const double highest =
      std::min(std::floor(window.y0 + extent - 0.5) + 1, static_cast<double>(viewport[1] + viewport[3] - 1));
  if (!(highest >= lowest)) {
    return std::nullopt;
  }
  // Window row r has its centre at r + 1/2.
  return PrefilteredTexture::Rows{static_cast<int>(highest - lowest) + 1,
                                  0.5 - (lowest + 0.5 - window.y0) / scale, -1 / scale};
}

constexpr GLdouble kIdentityMatrix[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

// A level of detail above 0 by a millionth gives the next level less weight than a sampler resolves,
// so GL's magnifying filter gives the same pixels.
bool magnified(std::optional<double> levelOfDetail) {
  return levelOfDetail && *levelOfDetail <= 1e-6;
}

}  // namespace

const PrefilteredTexture* MipmapFilter::prepare(std::uint32_t texture, int width, int height, double w,
                                                double h, double bias, bool anisotropic) {
  GLdouble textureMatrix[16];
  glGetDoublev(GL_TEXTURE_MATRIX, textureMatrix);
  const auto window = WindowTransform::current();
  const auto detail = levelOfDetail(window, w, h, width, height, textureMatrix, bias);
  // Where GL would sample with the magnifying filter anyway, saying so lets the quad take the
  // software rasterizer's fast path, which reads no mipmaps.
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER,
                  magnified(detail) ? GL_LINEAR : GL_LINEAR_MIPMAP_LINEAR);
  // Where the level of detail is the same at every pixel, clamping to it gives GL's exact value: the
  // driver may approximate its own (Mesa's software rasterizer by up to a tenth of a level), and a
  // bake, which has the exact value, would then differ from the frames around it.
  const bool pinned = detail && !anisotropic;
  glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MIN_LOD, pinned ? static_cast<GLfloat>(*detail) : -1000.0f);
  glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MAX_LOD, pinned ? static_cast<GLfloat>(*detail) : 1000.0f);

  // Baking samples the filter once for each texel of the bake, so only a texture drawn at the same
  // level of detail as the frame before is baked; a zooming quad, or video, keeps sampling the
  // mipmaps. A quad on the same window rows as the frame before, at rest or moving sideways, is baked
  // on those rows, which the fast path draws at about the cost of a texture not scaled vertically;
  // otherwise on the grid's rows, twice as many as the level's. The bake holds the texture's
  // coordinates from 0 to 1 only, which the quad spans under an identity texture matrix.
  const bool identity = std::equal(std::begin(textureMatrix), std::end(textureMatrix),
                                   std::begin(kIdentityMatrix), std::end(kIdentityMatrix));
  const bool steady = pinned && detail == levelOfDetail_ && !magnified(detail) && identity;
  const auto rows = window && identity ? windowRows(*window, h) : std::nullopt;
  const auto bakedRows = rows == rows_ ? rows : std::nullopt;
  levelOfDetail_ = detail;
  rows_ = rows;
  if (!steady) {
    return nullptr;
  }
  if (!prefiltered_ || prefiltered_->levelOfDetail() != *detail || prefiltered_->rows() != bakedRows) {
    prefiltered_ = PrefilteredTexture::bake(texture, width, height, *detail, bakedRows);
  }
  return prefiltered_ ? &*prefiltered_ : nullptr;
}

void MipmapFilter::forget() {
  prefiltered_.reset();
  levelOfDetail_.reset();
  rows_.reset();
}

}  // namespace qva
