#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include "foundation/image/Bitmap.h"
#include "foundation/text/AttributedString.h"

namespace qva {

struct TextSize {
  double width = 0;
  double height = 0;
};

// A rectangle in pixels, origin at the top-left corner, y down.
struct TextRect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
};

// An attributed string laid out at one point per pixel in a container, ready to be measured and drawn
// any number of times. Each paragraph follows its own paragraph style (alignment, line break mode, tab
// stops, indents, spacing, line heights); every character attribute is drawn (fonts and traits, colours
// with alpha, kerning, obliqueness, expansion, stroke, underline and strikethrough with their styles,
// patterns and colours, shadows, superscript and subscript, background colour). What is measured is what
// is drawn: both come from the same lines.
class TextLayout {
 public:
  // A side left unset is unlimited: with no width, lines break only at explicit line breaks; with no
  // height, every line is laid out and drawn.
  struct Container {
    std::optional<double> width;
    std::optional<double> height;
  };

  explicit TextLayout(const AttributedString& text, Container container = {});
  ~TextLayout();
  TextLayout(TextLayout&& other) noexcept;
  TextLayout& operator=(TextLayout&& other) noexcept;
  TextLayout(const TextLayout&) = delete;
  TextLayout& operator=(const TextLayout&) = delete;

  // The size of the text with lines broken only at explicit line breaks: the widest line and the
  // height of all lines.
  static TextSize naturalSize(const AttributedString& text);

  const Container& container() const;
  // The rectangle the laid-out lines use in the container (all lines, also those past its height).
  TextRect usedRect() const;
  // The number of line fragments laid out (an empty text has none).
  std::size_t lineCount() const;
  // The height of the lines that fit entirely in the container's height (all lines when it has none),
  // at least the first line's: the height of the text as drawn in the container with its last visible
  // line truncated. 0 for an empty text.
  double fittedHeight() const;

  // Draws the text over the bitmap's premultiplied pixels with the container's top-left corner at
  // (left, top) in layout pixels (y down), scale bitmap pixels to a layout pixel. Lines whose top lies
  // within the container's height are drawn; the bitmap's edges clip, and so does the container's width
  // for lines in the Clip line break mode.
  void draw(Bitmap& bitmap, double left, double top, double scale = 1) const;

  // The number of words in the text by ICU's word boundaries (runs of letters, numbers or ideographs).
  static std::size_t wordCount(std::u16string_view text);

 private:
  struct Lines;
  std::unique_ptr<Lines> lines_;
};

}  // namespace qva
