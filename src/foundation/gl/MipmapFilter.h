#pragma once

#include <cstdint>
#include <optional>

#include "foundation/gl/PrefilteredTexture.h"

namespace qva {

// How a mipmapped 2D texture is filtered on a quad from frame to frame. Where GL's level of detail is
// the same at every pixel it is pinned to its exact value (drivers approximate their own); where GL
// magnifies, the texture is drawn without mipmaps, which the software rasterizer's fast path reads; and
// while the quad keeps its level of detail the filter is drawn baked (see PrefilteredTexture), on the
// window's rows while the quad also keeps those.
class MipmapFilter {
 public:
  // Sets the filtering of the texture bound to GL_TEXTURE_2D (width × height texels, its mipmaps
  // complete) for this frame's quad: w × h, centred on the modelview's origin, texture coordinates 0 to
  // 1 across it, under the current matrices, viewport and texture matrix. Answers the bake to draw
  // instead of the texture (through its loadTextureMatrix), or null. An anisotropic filter chooses its
  // own level, so it is neither pinned nor baked.
  const PrefilteredTexture* prepare(std::uint32_t texture, int width, int height, double w, double h,
                                    double bias, bool anisotropic);
  // Drops the bake and what the frames before said about the quad, as a new texture needs.
  void forget();

 private:
  // The last frame's level of detail and window rows, while the texture stays the same.
  std::optional<double> levelOfDetail_;
  std::optional<PrefilteredTexture::Rows> rows_;
  std::optional<PrefilteredTexture> prefiltered_;
};

}  // namespace qva
