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
  // The PNG file's bytes in memory, or an empty string when the image has no pixels or cannot be encoded.
  static std::string encode(const PixelBufferView& pixels);
  // The byte order of straight-alpha pixels written out.
  enum class ChannelOrder { RGBA, BGRA, ARGB };
  // Premultiplied BGRA to straight alpha, one row.
  static void unpremultiplyRow(const std::uint8_t* bgra, std::uint8_t* out, int width,
                               ChannelOrder order = ChannelOrder::RGBA);
};

}  // namespace qva
