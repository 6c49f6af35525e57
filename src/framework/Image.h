#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "framework/Value.h"

namespace qva {

class GLContext;

// A read-only view of BGRA8 pixels with premultiplied alpha, rows top to bottom.
struct PixelBufferView {
  int width = 0;
  int height = 0;
  std::size_t rowBytes = 0;
  const std::uint8_t* bytes = nullptr;
};

enum class TextureTarget { Texture2D, Rectangle };

// A GL texture holding premultiplied RGBA; flipped means its first row is the top of the image.
struct TextureView {
  std::uint32_t name = 0;
  TextureTarget target = TextureTarget::Texture2D;
  int width = 0;
  int height = 0;
  bool flipped = false;
};

// An immutable image shared through ImageRef. An image has one native representation (pixels in memory,
// a GL texture, or drawing on demand); the host converts to the others when a consumer asks and keeps
// the result with the image (convertedRepresentation), so each image is converted once.
class Image {
 public:
  // What the host keeps of a conversion; it dies with the image.
  class Representation {
   public:
    virtual ~Representation();
  };

  virtual ~Image();
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  virtual int width() const = 0;
  virtual int height() const = 0;
  // Image pixels per logical pixel of the composition: more than 1 for images drawn at the density of
  // an output larger than the canvas (ExecutionContext::outputScale). Consumers that size an image by
  // its pixels use its logical size.
  double pixelDensity() const { return pixelDensity_; }
  double logicalWidth() const { return width() / pixelDensity_; }
  double logicalHeight() const { return height() / pixelDensity_; }
  // The pixels in memory, when that is the image's own representation.
  virtual std::optional<PixelBufferView> pixelBuffer() const = 0;
  // The GL texture, when that is the image's own representation.
  virtual std::optional<TextureView> texture() const { return std::nullopt; }
  // Images drawn on demand draw themselves from -1 to 1 on both axes under the host's matrices, into
  // the viewport the host has set: a framebuffer of the image's size, cleared and without blending,
  // or for images that render every pixel once perhaps their place on a canvas. False when the image
  // cannot be drawn.
  virtual bool canRender() const { return false; }
  virtual bool render(GLContext& context) const;
  // Whether render() sets every pixel of its frame exactly once, with quads that cover the frame without
  // overlapping, and leaves blending as the host set it. The host then clears nothing for the image,
  // and may draw it straight onto a canvas, blended as its texture would be: the same pixels without
  // the texture.
  virtual bool rendersEveryPixelOnce() const { return false; }

  Representation* convertedRepresentation() const { return converted_.get(); }
  void setConvertedRepresentation(std::unique_ptr<Representation> representation) const;

 protected:
  // A density that is not a positive number is 1.
  explicit Image(double pixelDensity = 1);

 private:
  mutable std::unique_ptr<Representation> converted_;
  double pixelDensity_;
};

// An image over a pixel buffer that someone else allocated; the release callback runs once, when the
// last reference goes, and frees the pixels.
class BufferImage final : public Image {
 public:
  using ReleaseCallback = std::function<void(const std::uint8_t* bytes)>;

  BufferImage(int width, int height, std::size_t rowBytes, const std::uint8_t* bytes, ReleaseCallback release,
              double pixelDensity = 1);
  ~BufferImage() override;

  int width() const override { return width_; }
  int height() const override { return height_; }
  std::optional<PixelBufferView> pixelBuffer() const override;

 private:
  int width_;
  int height_;
  std::size_t rowBytes_;
  const std::uint8_t* bytes_;
  ReleaseCallback release_;
};

// An image over a GL texture that someone else owns; the release callback runs once, when the last
// reference goes.
class TextureImage final : public Image {
 public:
  using ReleaseCallback = std::function<void(const TextureView& texture)>;

  TextureImage(const TextureView& texture, ReleaseCallback release);
  ~TextureImage() override;

  int width() const override { return texture_.width; }
  int height() const override { return texture_.height; }
  std::optional<PixelBufferView> pixelBuffer() const override { return std::nullopt; }
  std::optional<TextureView> texture() const override { return texture_; }

 private:
  TextureView texture_;
  ReleaseCallback release_;
};

}  // namespace qva
