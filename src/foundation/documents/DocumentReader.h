#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "foundation/text/AttributedString.h"

namespace qva {

// Opens a document file as attributed text, whatever its format, for the formats this system reads:
// plain text (UTF-8 or UTF-16 with a byte-order mark, or else Windows Latin 1), RTF and HTML. Other
// word-processor formats are recognised by name and refused with a message that names them.
class DocumentReader {
 public:
  enum class Format { PlainText, RTF, HTML };

  struct Result {
    std::optional<AttributedString> text;
    // Why there is no text, as a sentence for the user; empty when there is text.
    std::string failure;
  };

  static Result readFile(const std::string& path);
  // The document in memory, of a format told by the file's name and its first bytes.
  static Result read(std::string_view bytes, const std::string& fileName);
  // The format by the name's extension, or by the bytes where the name has none of the known ones.
  static Format formatOf(std::string_view bytes, const std::string& fileName);
  // The name of a word-processor format that is known but not read, by the file name and first bytes;
  // none for a format that is read.
  static std::optional<std::string> unsupportedFormat(std::string_view bytes, const std::string& fileName);
};

}  // namespace qva
