#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "foundation/image/Bitmap.h"

namespace qva {

// The bitmap a rich text patch draws its text into and hands to the host as it is: transparent BGRA8
// with premultiplied alpha, rows of Bitmap::paddedRowBytes(width).
class RichTextBitmap {
 public:
  // None, with a process-log line that begins with origin, when the size cannot be had (beyond
  // Bitmap::maximumBytes, or no memory).
  static std::optional<Bitmap> allocate(std::uint32_t width, std::uint32_t height, const std::string& origin);
};

}  // namespace qva
