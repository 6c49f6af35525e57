#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "framework/Image.h"

namespace qva {

// Premultiplied B, G, R, A of a pixel.
using Pixel = std::array<int, 4>;

// The pixel at (x, y), (0, 0) the top-left one.
inline Pixel pixelAt(const PixelBufferView& pixels, int x, int y) {
  const std::uint8_t* p =
      pixels.bytes + static_cast<std::size_t>(y) * pixels.rowBytes + static_cast<std::size_t>(x) * 4;
  return {p[0], p[1], p[2], p[3]};
}

// The first `width` pixels of every row (all of them by default), rows packed one after another.
inline std::vector<std::uint8_t> packedBytes(const PixelBufferView& pixels, int width = -1) {
  const std::size_t rowLength = static_cast<std::size_t>(width < 0 ? pixels.width : width) * 4;
  std::vector<std::uint8_t> bytes;
  for (int y = 0; y < pixels.height; ++y) {
    const std::uint8_t* row = pixels.bytes + static_cast<std::size_t>(y) * pixels.rowBytes;
    bytes.insert(bytes.end(), row, row + rowLength);
  }
  return bytes;
}

}  // namespace qva
