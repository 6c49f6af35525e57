#pragma once

#include <string>

#include "framework/ExecutionContext.h"
#include "framework/Image.h"

namespace qva {

// A placeholder image: 256 × 256 pixels that draw as fully transparent.
class QVAOutputImageProvider final : public Image {
 public:
  explicit QVAOutputImageProvider(std::string colorSpace) : colorSpace_(std::move(colorSpace)) {}

  Rect imageBounds() const { return {0, 0, 256, 256}; }
  const std::string& imageColorSpace() const { return colorSpace_; }

  int width() const override { return 256; }
  int height() const override { return 256; }
  std::optional<PixelBufferView> pixelBuffer() const override { return std::nullopt; }
  bool canRender() const override { return true; }
  bool render(GLContext& context) const override;

 private:
  std::string colorSpace_;
};

}  // namespace qva
