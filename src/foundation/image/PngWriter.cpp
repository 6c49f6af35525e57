#include "foundation/image/PngWriter.h"

#include <png.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

namespace qva {

void PngWriter::unpremultiplyRow(const std::uint8_t* bgra, std::uint8_t* out, int width, ChannelOrder order) {
  // 255 / alpha in 16.16 fixed point, so that a pixel costs multiplications instead of divisions.
  static const std::array<std::uint32_t, 256> scale = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t alpha = 1; alpha < 256; ++alpha) {
      table[alpha] = (255u * 65536u + alpha / 2) / alpha;
    }
    return table;
  }();
  const int red = order == ChannelOrder::RGBA ? 0 : order == ChannelOrder::BGRA ? 2 : 1;
  const int green = order == ChannelOrder::ARGB ? 2 : 1;
  const int blue = order == ChannelOrder::RGBA ? 2 : order == ChannelOrder::BGRA ? 0 : 3;
  const int alphaAt = order == ChannelOrder::ARGB ? 0 : 3;
  for (int x = 0; x < width; ++x, bgra += 4, out += 4) {
    const std::uint32_t alpha = bgra[3];
    if (alpha == 255 || alpha == 0) {
      // Opaque and empty pixels, the bulk of most graphics, keep their values.
      out[red] = bgra[2];
      out[green] = bgra[1];
      out[blue] = bgra[0];
      out[alphaAt] = static_cast<std::uint8_t>(alpha);
      continue;
    }
    const std::uint32_t factor = scale[alpha];
    const auto straight = [factor](std::uint32_t value) {
      const std::uint32_t result = (value * factor + 32768u) >> 16;
      return static_cast<std::uint8_t>(result > 255 ? 255 : result);
    };
    out[red] = straight(bgra[2]);
    out[green] = straight(bgra[1]);
    out[blue] = straight(bgra[0]);
    out[alphaAt] = static_cast<std::uint8_t>(alpha);
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
