#pragma once

#include <cstdint>
#include <optional>

#include "foundation/gl/Framebuffer.h"

namespace qva {

// A mipmapped 2D texture's trilinear filter at one fixed level of detail, baked into a texture that
// bilinear sampling without mipmaps reproduces. Level n's texel centres and level n + 1's (when n + 1
// halves both sides exactly) all lie on a grid of half level-n texels, and the filter is bilinear in
// each of its cells, so sampling it at the grid's points and interpolating those samples bilinearly
// gives it back, up to the rounding of the samples to 8 bits. Drawing the bake costs a software
// rasterizer one bilinear fetch instead of two and takes its fast path; baking samples the filter once
// for each of four times level n's texels, so it pays while the texture and its level of detail stay.
class PrefilteredTexture {
 public:
  // A bake holds four times the texels of its level; beyond this (64 MB) the memory costs more than
  // the bake saves.
  static constexpr double kMaximumTexels = 1 << 24;

  // Bakes the source (width × height texels at level 0, mipmaps complete) at a level of detail.
  // Nothing where the bake would not be the filter: a level of detail at or below 0, where GL magnifies;
  // a level n with an odd side; a bake of more than kMaximumTexels; or a target the driver refuses. The
  // current framebuffer, viewport, matrices, program and texture state stay.
  static std::optional<PrefilteredTexture> bake(std::uint32_t source, int width, int height,
                                                double levelOfDetail);

  double levelOfDetail() const { return levelOfDetail_; }
  // The baked texture, linear without mipmaps, clamped to its edges.
  std::uint32_t texture() const { return target_.texture().name; }
  // Loads the texture matrix that takes the source's coordinates onto the bake, so that the bake drawn
  // with them gives the source's filtered pixels. Only coordinates from 0 to 1 are baked: beyond them
  // the source's wrap mode would apply.
  void loadTextureMatrix() const;

 private:
  PrefilteredTexture(Framebuffer target, double levelOfDetail);

  Framebuffer target_;
  double levelOfDetail_;
};

}  // namespace qva
