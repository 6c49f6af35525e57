#include "framework/Image.h"

#include <cmath>
#include <utility>

namespace qva {

Image::Representation::~Representation() = default;

Image::Image(double pixelDensity)
    : pixelDensity_(pixelDensity > 0 && std::isfinite(pixelDensity) ? pixelDensity : 1) {}

Image::~Image() = default;

bool Image::render(GLContext& /*context*/) const {
  return false;
}

void Image::setConvertedRepresentation(std::unique_ptr<Representation> representation) const {
  converted_ = std::move(representation);
}

BufferImage::BufferImage(int width, int height, std::size_t rowBytes, const std::uint8_t* bytes,
                         ReleaseCallback release, double pixelDensity)
    : Image(pixelDensity),
      width_(width),
      height_(height),
      rowBytes_(rowBytes),
      bytes_(bytes),
      release_(std::move(release)) {}

BufferImage::~BufferImage() {
  if (release_) {
    release_(bytes_);
  }
}

std::optional<PixelBufferView> BufferImage::pixelBuffer() const {
  return PixelBufferView{width_, height_, rowBytes_, bytes_};
}

TextureImage::TextureImage(const TextureView& texture, ReleaseCallback release)
    : texture_(texture), release_(std::move(release)) {}

TextureImage::~TextureImage() {
  if (release_) {
    release_(texture_);
  }
}

}  // namespace qva
