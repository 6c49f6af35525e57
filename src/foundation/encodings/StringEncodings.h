#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qva {

// One text encoding this system offers: the ICU converter that decodes it and the name a person knows
// it by.
struct StringEncoding {
  std::string converterName;
  std::string localizedName;
};

// The text encodings this system offers, in a fixed order, and strict decoding of bytes to UTF-8.
class StringEncodings {
 public:
  // Every offered encoding, listed by region, Unicode first. The list never depends on the ICU build, so
  // that a menu index means the same encoding everywhere; one this ICU cannot convert fails to decode.
  static const std::vector<StringEncoding>& available();
  // The localized names of available(), in the same order.
  static const std::vector<std::string>& localizedNames();
  // The position in available() of the encoding named by its localized name or by any ICU name or
  // alias of its converter (ignoring case and punctuation), or none.
  static std::optional<std::size_t> indexOfName(std::string_view name);

  // The bytes decoded from the named encoding to UTF-8; none when the name is unknown or any byte
  // sequence is invalid in that encoding.
  static std::optional<std::string> decode(std::string_view bytes, const std::string& encoding);

  // The bytes decoded from the named encoding to UTF-8, each invalid sequence replaced by the
  // encoding's substitute character (U+FFFD for most); none only when the name is unknown.
  static std::optional<std::string> decodeReplacing(std::string_view bytes, const std::string& encoding);

  // The encoding a UTF-8 or UTF-16 byte-order mark at the start of the bytes announces, with the
  // length of the mark; none without a mark.
  struct ByteOrderMark {
    std::string encoding;
    std::size_t length = 0;
  };
  static std::optional<ByteOrderMark> byteOrderMark(std::string_view bytes);

  // Text of unknown encoding decoded to UTF-8: a UTF-8 or UTF-16 byte-order mark decides (and is
  // dropped); without one, valid UTF-8 is taken as such and anything else as Windows Latin 1.
  static std::optional<std::string> decodeDetected(std::string_view bytes);
};

}  // namespace qva
