#include "foundation/image/PngWriter.h"

#include <png.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

namespace qva {

void PngWriter::unpremultiplyRow(const std::uint8_t* bgra, std::uint8_t* rgba, int width) {
  for (int x = 0; x < width; ++x, bgra += 4, rgba += 4) {
    const unsigned alpha = bgra[3];
    if (alpha == 255 || alpha == 0) {
      rgba[0] = bgra[2];
      rgba[1] = bgra[1];
      rgba[2] = bgra[0];
    } else {
      for (int c = 0; c < 3; ++c) {
        const unsigned value = (bgra[2 - c] * 255u + alpha / 2) / alpha;
        rgba[c] = static_cast<std::uint8_t>(value > 255 ? 255 : value);
      }
    }
    rgba[3] = static_cast<std::uint8_t>(alpha);
  }
}

std::string PngWriter::write(const PixelBufferView& pixels, const std::string& path) {
  if (pixels.width <= 0 || pixels.height <= 0 || pixels.bytes == nullptr) {
    return "cannot write " + path + ": the image has no pixels";
  }
  std::vector<std::uint8_t> rgba(static_cast<std::size_t>(pixels.width) * pixels.height * 4);
  for (int y = 0; y < pixels.height; ++y) {
    unpremultiplyRow(pixels.bytes + static_cast<std::size_t>(y) * pixels.rowBytes,
                     rgba.data() + static_cast<std::size_t>(y) * pixels.width * 4, pixels.width);
  }
  const std::string partial = path + ".partial";
  std::FILE* file = std::fopen(partial.c_str(), "wb");
  if (file == nullptr) {
    return "cannot write " + path + ": " + std::strerror(errno);
  }
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(pixels.width);
  image.height = static_cast<png_uint_32>(pixels.height);
  image.format = PNG_FORMAT_RGBA;
  const bool written = png_image_write_to_stdio(&image, file, 0, rgba.data(), 0, nullptr) != 0;
  const bool closed = std::fclose(file) == 0;
  if (!written || !closed) {
    const std::string reason = written ? std::strerror(errno) : image.message;
    png_image_free(&image);
    unlink(partial.c_str());
    return "cannot write " + path + ": " + reason;
  }
  if (std::rename(partial.c_str(), path.c_str()) != 0) {
    const std::string reason = std::strerror(errno);
    unlink(partial.c_str());
    return "cannot write " + path + ": " + reason;
  }
  return {};
}

}  // namespace qva
