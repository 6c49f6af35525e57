#include "foundation/rtf/RTFStringExtensions.h"

#include "foundation/rtf/RtfReader.h"
#include "foundation/rtf/RtfWriter.h"

namespace qva {

namespace {

// The bytes up to the first zero byte, as a C string would hold them.
std::string_view cString(std::string_view bytes) {
  return bytes.substr(0, bytes.find('\0'));
}

// The document the string holds, read from its bytes in the encoding (as a C string cut to the limit when
// one is given); none when the string is empty, invalid in Mac OS Roman, or its bytes read with an error.
std::optional<AttributedString> readValid(const std::string& string, const TextEncoding& encoding,
                                          std::optional<std::size_t> cStringLimit) {
  if (string.empty() || !RTFStringExtensions::isValidRTF(string)) {
    return std::nullopt;
  }
  std::optional<std::string> bytes = encoding.encodeUtf8(string);
  if (!bytes) {
    return std::nullopt;
  }
  std::string_view document = *bytes;
  if (cStringLimit) {
    document = cString(document).substr(0, *cStringLimit);
  }
  RtfReader::Result result = RtfReader::read(document);
  if (result.error) {
    return std::nullopt;
  }
  return std::move(result.text);
}

}  // namespace

bool RTFStringExtensions::isValidRTF(const std::string& string) {
  return isValidRTF(string, TextEncoding::macOSRoman());
}

bool RTFStringExtensions::isValidRTF(const std::string& string, const TextEncoding& encoding) {
  std::optional<std::string> bytes = encoding.encodeUtf8(string);
  return bytes && !RtfReader::read(*bytes).error;
}

std::optional<AttributedString> RTFStringExtensions::RTFString(const std::string& string) {
  return RTFString(string, TextEncoding::macOSRoman());
}

std::optional<AttributedString> RTFStringExtensions::RTFString(const std::string& string,
                                                               const TextEncoding& encoding) {
  return readValid(string, encoding, std::nullopt);
}

std::optional<TextAttributes> RTFStringExtensions::describedRTFAttributes(const std::string& string) {
  return describedRTFAttributes(string, TextEncoding::utf8());
}

std::optional<TextAttributes> RTFStringExtensions::describedRTFAttributes(const std::string& string,
                                                                          const TextEncoding& encoding) {
  std::optional<AttributedString> text =
      readValid(string, encoding, TextEncoding::utf16FromUtf8(string).size());
  if (!text || text->empty()) {
    return std::nullopt;
  }
  return text->attributesAt(0);
}

std::optional<std::string> RTFStringExtensions::RTFAsPlainString(const AttributedString& text) {
  return RTFAsPlainString(text, TextEncoding::macOSRoman());
}

std::optional<std::string> RTFStringExtensions::RTFAsPlainString(const AttributedString& text,
                                                                 const TextEncoding& encoding) {
  std::string document = RtfWriter::write(text);
  std::string_view bytes = cString(document);
  std::u16string decoded = encoding.decode(bytes);
  if (encoding.encode(decoded) != std::optional<std::string>(std::string(bytes))) {
    return std::nullopt;
  }
  return TextEncoding::utf8FromUtf16(decoded);
}

}  // namespace qva
