#pragma once

#include <string>

#include "framework/Image.h"

namespace qva {

// Writes premultiplied BGRA pixels as an 8-bit RGBA PNG with straight alpha. The file appears under its
// name only once it is complete; a failure leaves no file behind.
class PngWriter {
 public:
  // An empty string on success, otherwise why the file could not be written.
  static std::string write(const PixelBufferView& pixels, const std::string& path);
  // Premultiplied BGRA to straight alpha, one row: RGBA order, or BGRA when keepOrder is set.
  static void unpremultiplyRow(const std::uint8_t* bgra, std::uint8_t* out, int width,
                               bool keepOrder = false);
};

}  // namespace qva
