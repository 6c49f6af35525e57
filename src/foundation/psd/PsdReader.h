#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "foundation/psd/PsdDocument.h"

namespace qva {

// Reads Photoshop documents (version 1) of 8- or 16-bit RGB or greyscale, with layers whose channels
// are raw, PackBits or deflate compressed; 16-bit samples are reduced to 8 bits. Everything else, and
// every damaged or truncated document, is refused with one line saying why, never read as wrong
// pixels. Layer masks are read past, not applied.
class PsdReader {
 public:
  struct Result {
    std::optional<PsdDocument> document;
    // Why there is no document, one line.
    std::string error;
  };

  // The most pixels a canvas or a layer may have.
  static constexpr std::size_t maximumPixels = std::size_t{1} << 28;
  // The largest width or height of a version 1 document.
  static constexpr std::uint32_t maximumCanvasSide = 30000;

  static Result read(std::span<const std::uint8_t> bytes);
};

}  // namespace qva
