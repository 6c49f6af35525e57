#include "foundation/image/Bitmap.h"

#include <cairo.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

namespace qva {

namespace {

std::size_t pageSize() {
  const long size = sysconf(_SC_PAGESIZE);
  return size > 0 ? static_cast<std::size_t>(size) : 4096;
}

}  // namespace

std::size_t Bitmap::paddedRowBytes(std::size_t width) {
  return (width & ~std::size_t{3}) * 4 + 16;
}

std::size_t Bitmap::alignedRowBytes(std::size_t width) {
  const std::size_t bytes = width * 4;
  return bytes % 16 == 0 ? bytes : (width & ~std::size_t{3}) * 4 + 16;
}

std::optional<Bitmap> Bitmap::allocate(int width, int height, std::size_t rowBytes) {
  if (width < 0 || height < 0 || rowBytes < static_cast<std::size_t>(width) * 4) {
    return std::nullopt;
  }
  if (height > 0 && rowBytes > maximumBytes / static_cast<std::size_t>(height)) {
    return std::nullopt;
  }
  // Keep at least one byte so that even an empty bitmap has an address of its own.
  const std::size_t size = std::max<std::size_t>(rowBytes * static_cast<std::size_t>(height), 1);
  void* memory = nullptr;
  if (posix_memalign(&memory, pageSize(), size) != 0) {
    return std::nullopt;
  }
  std::memset(memory, 0, size);
  return Bitmap(width, height, rowBytes, static_cast<std::uint8_t*>(memory));
}

Bitmap::Bitmap(int width, int height, std::size_t rowBytes, std::uint8_t* bytes)
    : width_(width), height_(height), rowBytes_(rowBytes), bytes_(bytes) {}

Bitmap::Bitmap(Bitmap&& other) noexcept
    : width_(other.width_),
      height_(other.height_),
      rowBytes_(other.rowBytes_),
      bytes_(std::exchange(other.bytes_, nullptr)) {}

Bitmap& Bitmap::operator=(Bitmap&& other) noexcept {
  if (this != &other) {
    std::free(bytes_);
    width_ = other.width_;
    height_ = other.height_;
    rowBytes_ = other.rowBytes_;
    bytes_ = std::exchange(other.bytes_, nullptr);
  }
  return *this;
}

Bitmap::~Bitmap() {
  std::free(bytes_);
}

Bitmap::Rows Bitmap::visibleRows() const {
  const std::size_t length = static_cast<std::size_t>(width_) * 4;
  const auto clear = [&](int y) {
    const std::uint8_t* start = row(y);
    return std::all_of(start, start + length, [](std::uint8_t byte) { return byte == 0; });
  };
  int top = 0;
  while (top < height_ && clear(top)) {
    ++top;
  }
  int bottom = height_;
  while (bottom > top && clear(bottom - 1)) {
    --bottom;
  }
  return {top, bottom};
}

void Bitmap::premultiply() {
  for (int y = 0; y < height_; ++y) {
    std::uint8_t* pixel = row(y);
    for (int x = 0; x < width_; ++x, pixel += 4) {
      const unsigned alpha = pixel[3];
      if (alpha != 255) {
        for (int c = 0; c < 3; ++c) {
          pixel[c] = static_cast<std::uint8_t>((pixel[c] * alpha + 127) / 255);
        }
      }
    }
  }
}

void Bitmap::convertPremultipliedRgba() {
  for (int y = 0; y < height_; ++y) {
    std::uint8_t* pixel = row(y);
    for (int x = 0; x < width_; ++x, pixel += 4) {
      const std::uint8_t alpha = pixel[3];
      const std::uint8_t red = std::min(pixel[0], alpha);
      pixel[0] = std::min(pixel[2], alpha);
      pixel[1] = std::min(pixel[1], alpha);
      pixel[2] = red;
    }
  }
}

void Bitmap::drawImage(const PixelBufferView& image, double left, double top) {
  if (bytes_ == nullptr || image.bytes == nullptr || image.width <= 0 || image.height <= 0 ||
      !std::isfinite(left) || !std::isfinite(top)) {
    return;
  }
  // Only the pixels the picture touches, and the texels that reach them (one more on each side for the
  // filter), become Cairo surfaces: large bitmaps and pictures stay within Cairo's size limits.
  const double x0 = std::max(0.0, std::floor(left));
  const double x1 = std::min(static_cast<double>(width_), std::ceil(left + image.width));
  const double y0 = std::max(0.0, std::floor(top));
  const double y1 = std::min(static_cast<double>(height_), std::ceil(top + image.height));
  if (x0 >= x1 || y0 >= y1) {
    return;
  }
  const double sx0 = std::clamp(std::floor(x0 - left) - 1, 0.0, static_cast<double>(image.width));
  const double sx1 = std::clamp(std::ceil(x1 - left) + 1, 0.0, static_cast<double>(image.width));
  const double sy0 = std::clamp(std::floor(y0 - top) - 1, 0.0, static_cast<double>(image.height));
  const double sy1 = std::clamp(std::ceil(y1 - top) + 1, 0.0, static_cast<double>(image.height));
  cairo_surface_t* target = cairo_image_surface_create_for_data(
      row(static_cast<int>(y0)) + static_cast<std::size_t>(x0) * 4, CAIRO_FORMAT_ARGB32,
      static_cast<int>(x1 - x0), static_cast<int>(y1 - y0), static_cast<int>(rowBytes_));
  // Cairo only reads the source.
  cairo_surface_t* source = cairo_image_surface_create_for_data(
      const_cast<std::uint8_t*>(image.bytes) + static_cast<std::size_t>(sy0) * image.rowBytes +
          static_cast<std::size_t>(sx0) * 4,
      CAIRO_FORMAT_ARGB32, static_cast<int>(sx1 - sx0), static_cast<int>(sy1 - sy0),
      static_cast<int>(image.rowBytes));
  cairo_t* cr = cairo_create(target);
  cairo_set_source_surface(cr, source, left + sx0 - x0, top + sy0 - y0);
  cairo_paint(cr);
  cairo_destroy(cr);
  cairo_surface_destroy(source);
  cairo_surface_flush(target);
  cairo_surface_destroy(target);
}

std::optional<Bitmap> Bitmap::scaled(const PixelBufferView& image, int width, int height) {
  if (width <= 0 || height <= 0 || image.width <= 0 || image.height <= 0 || image.bytes == nullptr) {
    return std::nullopt;
  }
  std::optional<Bitmap> result = allocate(width, height, alignedRowBytes(static_cast<std::size_t>(width)));
  if (!result) {
    return std::nullopt;
  }
  cairo_surface_t* target = cairo_image_surface_create_for_data(result->bytes(), CAIRO_FORMAT_ARGB32, width,
                                                                height, static_cast<int>(result->rowBytes()));
  // Cairo only reads the source.
  cairo_surface_t* source =
      cairo_image_surface_create_for_data(const_cast<std::uint8_t*>(image.bytes), CAIRO_FORMAT_ARGB32,
                                          image.width, image.height, static_cast<int>(image.rowBytes));
  cairo_t* cr = cairo_create(target);
  cairo_scale(cr, static_cast<double>(width) / image.width, static_cast<double>(height) / image.height);
  cairo_set_source_surface(cr, source, 0, 0);
  cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
  cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
  cairo_paint(cr);
  cairo_destroy(cr);
  cairo_surface_destroy(source);
  cairo_surface_flush(target);
  cairo_surface_destroy(target);
  return result;
}

ImageRef Bitmap::toImage(double pixelDensity) && {
  std::uint8_t* bytes = std::exchange(bytes_, nullptr);
  return std::make_shared<BufferImage>(
      width_, height_, rowBytes_, bytes,
      [](const std::uint8_t* memory) { std::free(const_cast<std::uint8_t*>(memory)); }, pixelDensity);
}

}  // namespace qva
