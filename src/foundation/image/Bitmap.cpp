#include "foundation/image/Bitmap.h"

#include <unistd.h>

#include <algorithm>
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

ImageRef Bitmap::toImage() && {
  std::uint8_t* bytes = std::exchange(bytes_, nullptr);
  return std::make_shared<BufferImage>(width_, height_, rowBytes_, bytes, [](const std::uint8_t* memory) {
    std::free(const_cast<std::uint8_t*>(memory));
  });
}

}  // namespace qva
