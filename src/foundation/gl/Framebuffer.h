#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "framework/Image.h"

namespace qva {

// An offscreen render target: an RGBA8 texture (2D or rectangle) with an optional depth buffer. bind()
// makes it the draw target with a viewport of its size and unbind() restores what was bound before.
class Framebuffer {
 public:
  // Nothing when the size is empty or beyond the driver's limits, or the driver refuses the target.
  static std::optional<Framebuffer> create(int width, int height, TextureTarget target, bool depth);
  // A target drawing into a texture made before, which it owns from now on; nothing (and the texture
  // deleted) when the driver cannot draw into it.
  static std::optional<Framebuffer> adopt(const TextureView& texture);
  Framebuffer(Framebuffer&& other) noexcept;
  Framebuffer& operator=(Framebuffer&& other) noexcept;
  Framebuffer(const Framebuffer&) = delete;
  Framebuffer& operator=(const Framebuffer&) = delete;
  ~Framebuffer();

  int width() const { return width_; }
  int height() const { return height_; }
  // The colour texture; GL's row order, so not flipped.
  TextureView texture() const;
  // Gives up the colour texture: the caller deletes it from now on.
  std::uint32_t releaseTexture();

  bool hasDepth() const { return depth_ != 0; }
  // Gives a target made without depth a 24-bit depth buffer (contents undefined until cleared); false
  // when the driver refuses it. The framebuffer bound before stays bound.
  bool attachDepth();

  void bind();
  // Sets every pixel of the colour texture, whatever is bound, to a colour given as premultiplied
  // RGBA from 0 to 1. Needs OpenGL 4.4.
  void fill(const float (&rgba)[4]);
  void unbind();
  // Reads the bound framebuffer's pixels as BGRA, first row at the top; bottomRowFirst false reads a
  // target whose first row already is the top.
  static void readPixels(int width, int height, std::uint8_t* bytes, std::size_t rowBytes,
                         bool bottomRowFirst = true);

 private:
  Framebuffer() = default;
  void destroy();

  int width_ = 0;
  int height_ = 0;
  TextureTarget target_ = TextureTarget::Texture2D;
  std::uint32_t framebuffer_ = 0;
  std::uint32_t texture_ = 0;
  std::uint32_t depth_ = 0;
  int previousFramebuffer_ = 0;
  int previousViewport_[4] = {0, 0, 0, 0};
};

}  // namespace qva
