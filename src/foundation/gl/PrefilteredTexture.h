#pragma once

#include <cstdint>
#include <optional>

#include "foundation/gl/Framebuffer.h"

namespace qva {

// A mipmapped 2D texture's trilinear filter at one fixed level of detail, baked into a texture that
// bilinear sampling without mipmaps reproduces. Level n's texel centres and level n + 1's (when n + 1
// halves a side exactly) all lie on a grid of half level-n texels, and the filter is bilinear in each
// of its cells, so sampling it at the grid's points and interpolating those samples bilinearly gives it
// back, up to the rounding of the samples to 8 bits. The bake's columns always lie on that grid. Its
// rows either do too, or lie where a quad's window rows will sample it: the filter along one such row
// is linear between the grid's columns, so a quad whose rows land on the bake's rows draws it exactly
// whatever its horizontal position. Drawing the bake costs a software rasterizer one bilinear fetch
// instead of two and takes its fast path, which on rows of its own reads one new row of texels for
// each row drawn instead of two; baking samples the filter once for each texel of the bake, so it pays
// while the texture and its level of detail (and, for its own rows, the quad's rows) stay.
class PrefilteredTexture {
 public:
  // A bake on the grid's rows holds four times the texels of its level; beyond this (64 MB) the memory
  // costs more than the bake saves.
  static constexpr double kMaximumTexels = 1 << 24;

  // Rows at source coordinates t = first + k·step for k from 0 to count − 1.
  struct Rows {
    int count = 0;
    double first = 0;
    double step = 0;
    bool operator==(const Rows&) const = default;
  };

  // Bakes the source (width × height texels at level 0, mipmaps complete) at a level of detail, on
  // the given rows or, without them, on the grid's. Nothing where the bake would not be the filter: a
  // level of detail at or below 0, where GL magnifies; a level n with an odd width (or height, on the
  // grid's rows); a bake of more than kMaximumTexels; no rows, or rows of no finite step; or a target the
  // driver refuses. The current framebuffer, viewport, matrices, program and texture state stay.
  static std::optional<PrefilteredTexture> bake(std::uint32_t source, int width, int height,
                                                double levelOfDetail,
                                                std::optional<Rows> rows = std::nullopt);

  double levelOfDetail() const { return levelOfDetail_; }
  // The rows asked for; nothing for the grid's.
  const std::optional<Rows>& rows() const { return rows_; }
  // The baked texture, linear without mipmaps, clamped to its edges.
  std::uint32_t texture() const { return target_.texture().name; }
  // Loads the texture matrix that takes the source's coordinates onto the bake, so that the bake drawn
  // with them gives the source's filtered pixels. Only s from 0 to 1 is baked (beyond it the source's
  // wrap mode would apply), and only t from 0 to 1 on the grid's rows, or the given rows' own t.
  void loadTextureMatrix() const;

 private:
  PrefilteredTexture(Framebuffer target, double levelOfDetail, std::optional<Rows> rows, Rows sampled);

  Framebuffer target_;
  double levelOfDetail_;
  std::optional<Rows> rows_;
  // Where the bake's rows sample the source, the grid's included.
  Rows sampled_;
};

}  // namespace qva
