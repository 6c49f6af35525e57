#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "foundation/image/Bitmap.h"

namespace qva {

// Decodes the first image of a PNG, JPEG, TIFF, BMP, GIF or WebP file into a premultiplied BGRA8
// bitmap. Truncated or damaged data is an error, never a partial picture.
class ImageDecoder {
 public:
  using RowBytesRule = std::size_t (*)(std::size_t width);

  struct Result {
    std::optional<Bitmap> bitmap;
    // Why there is no bitmap, one line.
    std::string error;
    // Whether the image was refused for its size (see maximumPixels) rather than for its data.
    bool tooLarge = false;
  };

  // Images above this many pixels are refused.
  static constexpr std::size_t maximumPixels = std::size_t{1} << 28;

  static Result decodeFile(const std::string& path, RowBytesRule rowBytes = &Bitmap::paddedRowBytes);
  static Result decode(const std::uint8_t* data, std::size_t size,
                       RowBytesRule rowBytes = &Bitmap::paddedRowBytes);
};

}  // namespace qva
