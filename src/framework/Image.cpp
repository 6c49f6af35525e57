#include "framework/Image.h"

#include <utility>

namespace qva {

Image::~Image() = default;

BufferImage::BufferImage(int width, int height, std::size_t rowBytes, const std::uint8_t* bytes,
                         ReleaseCallback release)
    : width_(width), height_(height), rowBytes_(rowBytes), bytes_(bytes), release_(std::move(release)) {}

BufferImage::~BufferImage() {
  if (release_) {
    release_(bytes_);
  }
}

std::optional<PixelBufferView> BufferImage::pixelBuffer() const {
  return PixelBufferView{width_, height_, rowBytes_, bytes_};
}

}  // namespace qva
