#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "framework/Image.h"

namespace qva {

// A BGRA8 bitmap with premultiplied alpha in page-aligned memory, rows top to bottom. It owns its
// memory until it is handed to an image with toImage().
class Bitmap {
 public:
  // The usual row length of the system's images: 4 × width rounded down to a multiple of 16, plus 16
  // (the padding is there even when 4 × width is already a multiple of 16).
  static std::size_t paddedRowBytes(std::size_t width);
  // 4 × width rounded up to a multiple of 16.
  static std::size_t alignedRowBytes(std::size_t width);
  // Largest bitmap allocate() accepts, in bytes; larger requests fail instead of exhausting memory.
  static constexpr std::size_t maximumBytes = std::size_t{1} << 31;

  // A zeroed (fully transparent) bitmap, or nothing when the size is negative, the rows are too short
  // or the memory cannot be had.
  static std::optional<Bitmap> allocate(int width, int height, std::size_t rowBytes);

  Bitmap(Bitmap&& other) noexcept;
  Bitmap& operator=(Bitmap&& other) noexcept;
  Bitmap(const Bitmap&) = delete;
  Bitmap& operator=(const Bitmap&) = delete;
  ~Bitmap();

  int width() const { return width_; }
  int height() const { return height_; }
  std::size_t rowBytes() const { return rowBytes_; }
  std::uint8_t* bytes() { return bytes_; }
  const std::uint8_t* bytes() const { return bytes_; }
  std::uint8_t* row(int y) { return bytes_ + static_cast<std::size_t>(y) * rowBytes_; }
  const std::uint8_t* row(int y) const { return bytes_ + static_cast<std::size_t>(y) * rowBytes_; }
  PixelBufferView view() const { return {width_, height_, rowBytes_, bytes_}; }

  // Rows from top to bottom (exclusive), counted from the first row.
  struct Rows {
    int top = 0;
    int bottom = 0;
    bool empty() const { return bottom <= top; }
    bool operator==(const Rows&) const = default;
  };
  // The fewest rows that hold every pixel that is not wholly transparent (all four bytes zero); empty
  // when there is none.
  Rows visibleRows() const;

  // Converts straight-alpha pixels of the bitmap to premultiplied alpha in place.
  void premultiply();
  // Turns pixels stored as premultiplied R, G, B, A bytes into this bitmap's order, limiting each colour
  // to its alpha: damaged data that claims premultiplied alpha still gives valid premultiplied colour.
  void convertPremultipliedRgba();
  // Composites premultiplied pixels over this bitmap (source over, opacity 1) with the picture's
  // top-left corner at (left, top) in pixels; fractional places are filtered bilinearly and the bitmap's
  // edges clip.
  void drawImage(const PixelBufferView& image, double left, double top);
  // The picture resampled to width × height (averaging the pixels each new pixel covers when it shrinks),
  // or nothing when either size is not positive or the memory cannot be had.
  static std::optional<Bitmap> scaled(const PixelBufferView& image, int width, int height);

  // An image that owns the memory from now on and frees it when the last reference goes; its pixel
  // density is how many of its pixels make one logical pixel (see Image::pixelDensity).
  ImageRef toImage(double pixelDensity = 1) &&;

 private:
  Bitmap(int width, int height, std::size_t rowBytes, std::uint8_t* bytes);

  int width_ = 0;
  int height_ = 0;
  std::size_t rowBytes_ = 0;
  std::uint8_t* bytes_ = nullptr;
};

}  // namespace qva
