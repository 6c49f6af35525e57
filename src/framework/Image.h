#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

#include "framework/Value.h"

namespace qva {

// A read-only view of BGRA8 pixels with premultiplied alpha, rows top to bottom.
struct PixelBufferView {
  int width = 0;
  int height = 0;
  std::size_t rowBytes = 0;
  const std::uint8_t* bytes = nullptr;
};

// An immutable image shared through ImageRef. Patches that compute pixels hand out buffer images; the
// host adds other representations (textures, images drawn on demand) and converts between them.
class Image {
 public:
  virtual ~Image();
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  virtual int width() const = 0;
  virtual int height() const = 0;
  // The pixels in memory, when the image has that representation.
  virtual std::optional<PixelBufferView> pixelBuffer() const = 0;

 protected:
  Image() = default;
};

// An image over a pixel buffer that someone else allocated; the release callback runs once, when the
// last reference goes, and frees the pixels.
class BufferImage final : public Image {
 public:
  using ReleaseCallback = std::function<void(const std::uint8_t* bytes)>;

  BufferImage(int width, int height, std::size_t rowBytes, const std::uint8_t* bytes,
              ReleaseCallback release);
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

}  // namespace qva
