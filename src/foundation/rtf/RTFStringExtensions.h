#pragma once

#include <optional>
#include <string>

#include "foundation/text/AttributedString.h"
#include "foundation/text/TextEncoding.h"

namespace qva {

// RTF operations on strings (UTF-8) and attributed strings, as the rich text patches share them. Each
// comes with its default encoding and with an explicit one.
class RTFStringExtensions {
 public:
  // The string encoded (Mac OS Roman by default) reads as RTF without error.
  static bool isValidRTF(const std::string& string);
  static bool isValidRTF(const std::string& string, const TextEncoding& encoding);

  // The attributed string the RTF document reads to; none when the string is empty, not valid RTF (a
  // test always made in Mac OS Roman), or reading its bytes in the encoding reports an error.
  static std::optional<AttributedString> RTFString(const std::string& string);
  static std::optional<AttributedString> RTFString(const std::string& string, const TextEncoding& encoding);

  // The attributes of the first character of the document (UTF-8 by default); none when the string is
  // empty or invalid. Only as many bytes as the string has UTF-16 characters are read, which cuts
  // multi-byte text short.
  static std::optional<TextAttributes> describedRTFAttributes(const std::string& string);
  static std::optional<TextAttributes> describedRTFAttributes(const std::string& string,
                                                              const TextEncoding& encoding);

  // The RTF document of the whole attributed string read as text in the encoding (Mac OS Roman by
  // default) up to its first zero byte; none when the bytes are not text in that encoding.
  static std::optional<std::string> RTFAsPlainString(const AttributedString& text);
  static std::optional<std::string> RTFAsPlainString(const AttributedString& text,
                                                     const TextEncoding& encoding);
};

}  // namespace qva
