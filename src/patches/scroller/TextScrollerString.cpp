#include "patches/scroller/TextScrollerString.h"

#include <cmath>

namespace qva {

TextScrollerString::TextScrollerString(std::optional<AttributedString> string, ImageRef image, float width,
                                       double height)
    : string_(std::move(string)), image_(std::move(image)), width_(width), height_(height) {}

std::shared_ptr<TextScrollerString> TextScrollerString::textScrollerStringWithString(
    std::optional<AttributedString> string) {
  const TextSize size = string ? TextLayout::naturalSize(*string) : TextSize{};
  // The strip's positions only ever grow; a measurement that is no size counts as none.
  const auto sized = [](double side) { return std::isfinite(side) && side > 0 ? side : 0.0; };
  return std::shared_ptr<TextScrollerString>(new TextScrollerString(
      std::move(string), nullptr, static_cast<float>(sized(size.width)), sized(size.height)));
}

std::shared_ptr<TextScrollerString> TextScrollerString::textScrollerStringWithImage(ImageRef image) {
  // Tiles are drawn in logical pixels: an image drawn at an output's density is brought to its size.
  if (const auto pixels = image && image->pixelDensity() != 1 ? image->pixelBuffer() : std::nullopt) {
    std::optional<Bitmap> logical =
        Bitmap::scaled(*pixels, static_cast<int>(std::lround(image->logicalWidth())),
                       static_cast<int>(std::lround(image->logicalHeight())));
    image = logical ? std::move(*logical).toImage() : nullptr;
  }
  const float width = image ? static_cast<float>(image->width()) : 0;
  const double height = image ? image->height() : 0;
  return std::shared_ptr<TextScrollerString>(
      new TextScrollerString(std::nullopt, std::move(image), width, height));
}

const TextLayout& TextScrollerString::layoutFor(double containerHeight) {
  if (!layout_ || layout_->container().height != containerHeight) {
    // Without a width the lines break only where the text does, as when it was measured; paragraph
    // alignment then goes by the widest line, which is the piece's width.
    layout_.emplace(*string_, TextLayout::Container{std::nullopt, containerHeight});
  }
  return *layout_;
}

float TextScrollerString::drawInRect(Bitmap& tile, const TextRect& rect, double pos, double from, double to,
                                     bool rightToLeft) {
  if (!(pos < to && from <= pos + width_)) {
    return width_;
  }
  const double place = rightToLeft ? rect.x + (pos - from) : (from - pos) + (rect.x + rect.width) - width_;
  if (string_ && !string_->empty()) {
    layoutFor(rect.height).draw(tile, place, rect.y);
  } else if (image_) {
    // Centred on the rectangle by the image's own height, rounded the way the picture is placed from
    // the rectangle's bottom edge.
    const double imageHeight = image_->height();
    const double fromBottom = std::floor((rect.height - imageHeight) * 0.5);
    if (const auto pixels = image_->pixelBuffer()) {
      tile.drawImage(*pixels, place, rect.y + rect.height - fromBottom - imageHeight);
    }
  }
  return width_;
}

}  // namespace qva
