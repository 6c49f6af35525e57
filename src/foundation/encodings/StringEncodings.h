#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qva {

// The text encodings this system offers by name (ICU's converters, in ICU's order) and strict decoding
// of bytes to UTF-8.
class StringEncodings {
 public:
  // Every available encoding's name, built once per process.
  static const std::vector<std::string>& names();
  // The position of the name in names(), or none.
  static std::optional<std::size_t> indexOfName(std::string_view name);

  // The bytes decoded from the named encoding to UTF-8; none when the name is unknown or any byte
  // sequence is invalid in that encoding.
  static std::optional<std::string> decode(std::string_view bytes, const std::string& encoding);

  // Text of unknown encoding decoded to UTF-8: a UTF-8 or UTF-16 byte-order mark decides (and is
  // dropped); without one, valid UTF-8 is taken as such and anything else as Windows Latin 1.
  static std::optional<std::string> decodeDetected(std::string_view bytes);
};

}  // namespace qva
