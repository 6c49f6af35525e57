#include "foundation/text/TextEncoding.h"

#include <unicode/ucnv.h>
#include <unicode/ustring.h>

#include <memory>
#include <unordered_map>

namespace qva {

namespace {

constexpr char16_t kReplacement = 0xFFFD;

struct ConverterCloser {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, ConverterCloser>;

Converter openConverter(const std::string& name) {
  UErrorCode status = U_ZERO_ERROR;
  Converter converter(ucnv_open(name.c_str(), &status));
  if (U_FAILURE(status)) {
    return nullptr;
  }
  return converter;
}

// This thread's converter for decoding with the named encoding, reset for a new conversion; opening one
// costs more than many a conversion.
UConverter* decodingConverter(const std::string& name) {
  thread_local std::unordered_map<std::string, Converter> converters;
  auto found = converters.find(name);
  if (found == converters.end()) {
    found = converters.emplace(name, openConverter(name)).first;
  }
  if (found->second) {
    ucnv_reset(found->second.get());
  }
  return found->second.get();
}

bool isAscii(std::string_view bytes) {
  for (char byte : bytes) {
    if (static_cast<unsigned char>(byte) >= 0x80) {
      return false;
    }
  }
  return true;
}

std::u16string decodeUtf16(std::string_view bytes) {
  bool bigEndian = true;
  std::size_t start = 0;
  if (bytes.size() >= 2) {
    auto first = static_cast<unsigned char>(bytes[0]);
    auto second = static_cast<unsigned char>(bytes[1]);
    if (first == 0xFF && second == 0xFE) {
      bigEndian = false;
      start = 2;
    } else if (first == 0xFE && second == 0xFF) {
      start = 2;
    }
  }
  std::u16string text;
  text.reserve((bytes.size() - start) / 2);
  for (std::size_t i = start; i + 1 < bytes.size(); i += 2) {
    auto high = static_cast<unsigned char>(bytes[bigEndian ? i : i + 1]);
    auto low = static_cast<unsigned char>(bytes[bigEndian ? i + 1 : i]);
    text.push_back(static_cast<char16_t>((high << 8) | low));
  }
  if ((bytes.size() - start) % 2 != 0) {
    text.push_back(kReplacement);
  }
  return text;
}

}  // namespace

TextEncoding TextEncoding::macOSRoman() {
  return TextEncoding("macintosh", Kind::Icu);
}
TextEncoding TextEncoding::utf8() {
  return TextEncoding("UTF-8", Kind::Utf8);
}
TextEncoding TextEncoding::utf16() {
  return TextEncoding("UTF-16", Kind::Utf16);
}
TextEncoding TextEncoding::isoLatin1() {
  return TextEncoding("ISO-8859-1", Kind::Icu);
}
TextEncoding TextEncoding::windowsLatin1() {
  return TextEncoding("windows-1252", Kind::Icu);
}

std::optional<TextEncoding> TextEncoding::named(std::string_view name) {
  std::string key(name);
  std::string lowered;
  for (char c : key) {
    lowered.push_back(static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c));
  }
  if (lowered == "utf-8" || lowered == "utf8") {
    return utf8();
  }
  if (lowered == "utf-16" || lowered == "utf16") {
    return utf16();
  }
  if (!openConverter(key)) {
    return std::nullopt;
  }
  return TextEncoding(key, Kind::Icu);
}

std::optional<TextEncoding> TextEncoding::fromCodePage(int codePage) {
  switch (codePage) {
    case 65001:
      return utf8();
    case 1200:
      return named("UTF-16LE");
    case 1201:
      return named("UTF-16BE");
    case 10000:
      return macOSRoman();
    case 10001:  // Mac Japanese: the Shift-JIS repertoire
      return named("windows-932");
    case 10006:
      return named("x-mac-greek");
    case 10007:
      return named("x-mac-cyrillic");
    case 10029:
      return named("x-mac-centraleurroman");
    case 10081:
      return named("x-mac-turkish");
    case 20127:
      return named("US-ASCII");
    default:
      break;
  }
  if (codePage <= 0 || codePage > 65535) {
    return std::nullopt;
  }
  if (codePage > 28590 && codePage < 28607) {
    return named("ISO-8859-" + std::to_string(codePage - 28590));
  }
  for (const char* prefix : {"windows-", "cp", "ibm-"}) {
    if (auto encoding = named(prefix + std::to_string(codePage))) {
      return encoding;
    }
  }
  return std::nullopt;
}

std::optional<TextEncoding> TextEncoding::fromCharset(int charset) {
  switch (charset) {
    case 77:
      return macOSRoman();
    case 78:
      return fromCodePage(10001);
    case 128:
      return fromCodePage(932);
    case 129:
      return fromCodePage(949);
    case 134:
      return fromCodePage(936);
    case 136:
      return fromCodePage(950);
    case 161:
      return fromCodePage(1253);
    case 162:
      return fromCodePage(1254);
    case 163:
      return fromCodePage(1258);
    case 177:
      return fromCodePage(1255);
    case 178:
      return fromCodePage(1256);
    case 186:
      return fromCodePage(1257);
    case 204:
      return fromCodePage(1251);
    case 222:
      return fromCodePage(874);
    case 238:
      return fromCodePage(1250);
    case 255:
      return fromCodePage(437);
    default:
      return std::nullopt;
  }
}

std::u16string TextEncoding::decode(std::string_view bytes) const {
  if (isAscii(bytes) && kind_ != Kind::Utf16) {
    return std::u16string(bytes.begin(), bytes.end());
  }
  switch (kind_) {
    case Kind::Utf8:
      return utf16FromUtf8(bytes);
    case Kind::Utf16:
      return decodeUtf16(bytes);
    case Kind::Icu:
      break;
  }
  UConverter* converter = decodingConverter(name_);
  if (converter == nullptr) {
    return std::u16string(bytes.size(), kReplacement);
  }
  std::u16string text(bytes.size() * 2 + 2, u'\0');
  UErrorCode status = U_ZERO_ERROR;
  int32_t length = ucnv_toUChars(converter, text.data(), static_cast<int32_t>(text.size()), bytes.data(),
                                 static_cast<int32_t>(bytes.size()), &status);
  if (U_FAILURE(status)) {
    return std::u16string(bytes.size(), kReplacement);
  }
  text.resize(static_cast<std::size_t>(length));
  return text;
}

std::string TextEncoding::decodeToUtf8(std::string_view bytes) const {
  if (kind_ == Kind::Icu && isAscii(bytes)) {
    return std::string(bytes);
  }
  return utf8FromUtf16(decode(bytes));
}

std::optional<std::string> TextEncoding::encode(std::u16string_view text) const {
  switch (kind_) {
    case Kind::Utf8:
      return utf8FromUtf16(text);
    case Kind::Utf16: {
      std::string bytes{'\xFF', '\xFE'};
      for (char16_t unit : text) {
        bytes.push_back(static_cast<char>(unit & 0xFF));
        bytes.push_back(static_cast<char>(unit >> 8));
      }
      return bytes;
    }
    case Kind::Icu:
      break;
  }
  Converter converter = openConverter(name_);
  if (!converter) {
    return std::nullopt;
  }
  UErrorCode status = U_ZERO_ERROR;
  // Unmappable characters are an error rather than a substitution.
  ucnv_setFromUCallBack(converter.get(), UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  std::string bytes(text.size() * 4 + 4, '\0');
  int32_t length = ucnv_fromUChars(converter.get(), bytes.data(), static_cast<int32_t>(bytes.size()),
                                   text.data(), static_cast<int32_t>(text.size()), &status);
  if (U_FAILURE(status)) {
    return std::nullopt;
  }
  bytes.resize(static_cast<std::size_t>(length));
  return bytes;
}

std::optional<std::string> TextEncoding::encodeUtf8(std::string_view text) const {
  if (kind_ == Kind::Icu && isAscii(text)) {
    return std::string(text);
  }
  return encode(utf16FromUtf8(text));
}

std::u16string TextEncoding::utf16FromUtf8(std::string_view text) {
  std::u16string result(text.size() + 1, u'\0');
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8WithSub(result.data(), static_cast<int32_t>(result.size()), &length, text.data(),
                       static_cast<int32_t>(text.size()), kReplacement, nullptr, &status);
  if (U_FAILURE(status)) {
    return {};
  }
  result.resize(static_cast<std::size_t>(length));
  return result;
}

std::string TextEncoding::utf8FromUtf16(std::u16string_view text) {
  std::string result(text.size() * 3 + 1, '\0');
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strToUTF8WithSub(result.data(), static_cast<int32_t>(result.size()), &length, text.data(),
                     static_cast<int32_t>(text.size()), kReplacement, nullptr, &status);
  if (U_FAILURE(status)) {
    return {};
  }
  result.resize(static_cast<std::size_t>(length));
  return result;
}

}  // namespace qva
