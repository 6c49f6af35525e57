#pragma once

#include <memory>
#include <optional>

#include "foundation/image/Bitmap.h"
#include "foundation/text/AttributedString.h"
#include "foundation/text/TextLayout.h"
#include "framework/Image.h"

namespace qva {

// One piece of the scroller's strip: a rich-text string or an image (or neither, an empty piece), with
// its size measured once when the piece is made.
class TextScrollerString {
 public:
  // None makes an empty piece of width 0.
  static std::shared_ptr<TextScrollerString> textScrollerStringWithString(
      std::optional<AttributedString> string);
  static std::shared_ptr<TextScrollerString> textScrollerStringWithImage(ImageRef image);

  const std::optional<AttributedString>& string() const { return string_; }
  const ImageRef& image() const { return image_; }
  float width() const { return width_; }
  double height() const { return height_; }

  // Draws the piece, which begins at strip x pos, into a tile that shows strip x from `from` to `to`,
  // when the two overlap (pos < to and from <= pos + width). The rectangle is the tile's drawing area
  // in bitmap pixels (y down): text hangs from its top; an image is placed by its own height. Right to
  // left, strip x runs left to right across the tile; left to right, it runs from the tile's right edge
  // leftwards. Returns the piece's width in every case.
  float drawInRect(Bitmap& tile, const TextRect& rect, double pos, double from, double to, bool rightToLeft);

  // Whether the piece holds a text layout kept from drawing, and dropping it: layouts cost memory, so
  // the scroller keeps only those of the pieces its latest tile drew.
  bool hasLayout() const { return layout_.has_value(); }
  void releaseLayout() { layout_.reset(); }

 private:
  TextScrollerString(std::optional<AttributedString> string, ImageRef image, float width, double height);
  const TextLayout& layoutFor(double containerHeight);

  std::optional<AttributedString> string_;
  ImageRef image_;
  float width_;
  double height_;
  std::optional<TextLayout> layout_;
};

}  // namespace qva
