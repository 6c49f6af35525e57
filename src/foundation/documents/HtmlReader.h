#pragma once

#include <optional>
#include <string_view>

#include "foundation/text/AttributedString.h"

namespace qva {

// Reads an HTML document (libxml2's forgiving HTML parser, no network) into attributed text: block
// elements become paragraphs, <br> a line break, and the common inline formatting (bold, italic,
// underline, strikethrough, superscript and subscript, <font> colour, size and face, headings,
// preformatted text, list markers) becomes attributes. Style sheets, images and tables' layout are not
// read. Text without formatting is Times 12, black.
class HtmlReader {
 public:
  // None when the bytes hold no document at all.
  static std::optional<AttributedString> read(std::string_view html);
};

}  // namespace qva
