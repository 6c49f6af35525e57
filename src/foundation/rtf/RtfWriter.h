#pragma once

#include <string>

#include "foundation/text/AttributedString.h"

namespace qva {

// Writes attributed text as a complete RTF document that RtfReader reads back to the same text and
// attributes (dimensions to a twentieth of a point, colour components to 1/100000). The output is pure
// ASCII: characters beyond it are written as \uN with an ASCII fallback.
class RtfWriter {
 public:
  static std::string write(const AttributedString& text);
};

}  // namespace qva
