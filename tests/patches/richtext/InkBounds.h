#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

#include "framework/Image.h"

namespace qva {

// The smallest rectangle of pixels with some alpha (x, y from the top-left, right and bottom exclusive),
// and the colour sums of the image, for tests that look at drawn text.
struct InkBounds {
  int left = 0;
  int top = 0;
  int right = 0;
  int bottom = 0;

  int width() const { return right - left; }
  int height() const { return bottom - top; }
  double centerX() const { return (left + right) / 2.0; }
  double centerY() const { return (top + bottom) / 2.0; }

  // None when every pixel is transparent.
  static std::optional<InkBounds> of(const PixelBufferView& pixels, std::uint8_t threshold = 0) {
    std::optional<InkBounds> bounds;
    for (int y = 0; y < pixels.height; ++y) {
      const std::uint8_t* row = pixels.bytes + static_cast<std::size_t>(y) * pixels.rowBytes;
      for (int x = 0; x < pixels.width; ++x) {
        if (row[x * 4 + 3] > threshold) {
          if (!bounds) {
            bounds = InkBounds{x, y, x + 1, y + 1};
          }
          bounds->left = std::min(bounds->left, x);
          bounds->top = std::min(bounds->top, y);
          bounds->right = std::max(bounds->right, x + 1);
          bounds->bottom = std::max(bounds->bottom, y + 1);
        }
      }
    }
    return bounds;
  }
};

}  // namespace qva
