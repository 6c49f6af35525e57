#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "foundation/image/Bitmap.h"
#include "framework/ExecutionContext.h"

namespace qva {

// The bitmap a rich text patch draws its text into and hands to the host as it is: transparent BGRA8
// with premultiplied alpha, rows of Bitmap::paddedRowBytes(width).
class RichTextBitmap {
 public:
  // A bitmap for width × height logical pixels at the context's output density: as many pixels as the
  // output gives that size, so that text drawn into it at outputScale() stays sharp on an output larger
  // than the canvas. None, with a process-log line that begins with origin, when the size cannot be had
  // (beyond Bitmap::maximumBytes, or no memory).
  static std::optional<Bitmap> allocate(std::uint32_t width, std::uint32_t height,
                                        const ExecutionContext& context, const std::string& origin);
};

}  // namespace qva
