#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qva {

// A text encoding, converted through ICU. Decoding never fails (bytes that do not decode become
// U+FFFD); encoding fails when a character has no representation.
class TextEncoding {
 public:
  static TextEncoding macOSRoman();
  static TextEncoding utf8();
  // UTF-16 with a byte-order mark: decoding honours either mark (big-endian without one), encoding
  // writes little-endian with a mark.
  static TextEncoding utf16();
  static TextEncoding isoLatin1();
  static TextEncoding windowsLatin1();
  // A Windows or Mac code page number as RTF and Windows use them (1252, 932, 10000, 65001...).
  static std::optional<TextEncoding> fromCodePage(int codePage);
  // An RTF \fcharset value; none for the "default" charsets that follow the document's code page.
  static std::optional<TextEncoding> fromCharset(int charset);
  // Any name or alias ICU knows ("macintosh", "Shift_JIS", "ISO-8859-2"...).
  static std::optional<TextEncoding> named(std::string_view name);

  const std::string& name() const { return name_; }
  bool isUtf8() const { return kind_ == Kind::Utf8; }

  std::u16string decode(std::string_view bytes) const;
  // Decodes and returns UTF-8.
  std::string decodeToUtf8(std::string_view bytes) const;
  std::optional<std::string> encode(std::u16string_view text) const;
  // Encodes UTF-8 text (invalid UTF-8 sequences are taken as U+FFFD).
  std::optional<std::string> encodeUtf8(std::string_view text) const;

  bool operator==(const TextEncoding& other) const { return name_ == other.name_; }

  // UTF-8 and UTF-16 conversions that replace invalid sequences with U+FFFD.
  static std::u16string utf16FromUtf8(std::string_view text);
  static std::string utf8FromUtf16(std::u16string_view text);

 private:
  enum class Kind { Icu, Utf8, Utf16 };
  TextEncoding(std::string name, Kind kind) : name_(std::move(name)), kind_(kind) {}

  std::string name_;
  Kind kind_;
};

}  // namespace qva
