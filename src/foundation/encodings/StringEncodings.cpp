#include "foundation/encodings/StringEncodings.h"

#include <unicode/ucnv.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>

#include <limits>
#include <memory>
#include <utility>

namespace qva {

namespace {

struct ConverterCloser {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};

using Converter = std::unique_ptr<UConverter, ConverterCloser>;

Converter openConverter(const char* name) {
  UErrorCode status = U_ZERO_ERROR;
  Converter converter(ucnv_open(name, &status));
  return U_SUCCESS(status) ? std::move(converter) : nullptr;
}

bool isValidUtf8(std::string_view bytes) {
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8(nullptr, 0, nullptr, bytes.data(), static_cast<int32_t>(bytes.size()), &status);
  return status == U_BUFFER_OVERFLOW_ERROR || U_SUCCESS(status) || status == U_STRING_NOT_TERMINATED_WARNING;
}

// The bytes in the encoding as UTF-8; invalid sequences stop the conversion or are substituted.
std::optional<std::string> convert(std::string_view bytes, const std::string& encoding,
                                   UConverterToUCallback onInvalid) {
  if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int32_t>::max())) {
    return std::nullopt;
  }
  Converter converter = openConverter(encoding.c_str());
  if (converter == nullptr) {
    return std::nullopt;
  }
  UErrorCode status = U_ZERO_ERROR;
  ucnv_setToUCallBack(converter.get(), onInvalid, nullptr, nullptr, nullptr, &status);
  icu::UnicodeString text(bytes.data(), static_cast<int32_t>(bytes.size()), converter.get(), status);
  if (U_FAILURE(status) || text.isBogus()) {
    return std::nullopt;
  }
  std::string utf8;
  text.toUTF8String(utf8);
  return utf8;
}

// The encodings offered to people choosing how a file is written, as text editors and players name
// them.
constexpr std::pair<const char*, const char*> kOfferedEncodings[] = {
    {"UTF-8", "Unicode (UTF-8)"},
    {"UTF-16", "Unicode (UTF-16)"},
    {"UTF-16BE", "Unicode (UTF-16BE)"},
    {"UTF-16LE", "Unicode (UTF-16LE)"},
    {"UTF-32", "Unicode (UTF-32)"},
    {"UTF-32BE", "Unicode (UTF-32BE)"},
    {"UTF-32LE", "Unicode (UTF-32LE)"},
    {"US-ASCII", "Western (ASCII)"},
    {"ISO-8859-1", "Western (ISO Latin 1)"},
    {"windows-1252", "Western (Windows Latin 1)"},
    {"macintosh", "Western (Mac OS Roman)"},
    {"ISO-8859-15", "Western (ISO Latin 9)"},
    {"ibm-850", "Western (DOS Latin 1)"},
    {"ibm-437", "Latin-US (DOS)"},
    {"ISO-8859-2", "Central European (ISO Latin 2)"},
    {"windows-1250", "Central European (Windows Latin 2)"},
    {"x-mac-centraleurroman", "Central European (Mac OS)"},
    {"ISO-8859-4", "Central European (ISO Latin 4)"},
    {"ISO-8859-3", "Western (ISO Latin 3)"},
    {"ISO-8859-13", "Baltic (ISO Latin 7)"},
    {"windows-1257", "Baltic (Windows)"},
    {"windows-1251", "Cyrillic (Windows)"},
    {"ISO-8859-5", "Cyrillic (ISO 8859-5)"},
    {"KOI8-R", "Cyrillic (KOI8-R)"},
    {"KOI8-U", "Ukrainian (KOI8-U)"},
    {"x-mac-cyrillic", "Cyrillic (Mac OS)"},
    {"ibm-866", "Cyrillic (DOS)"},
    {"windows-1253", "Greek (Windows)"},
    {"ISO-8859-7", "Greek (ISO 8859-7)"},
    {"x-mac-greek", "Greek (Mac OS)"},
    {"windows-1254", "Turkish (Windows Latin 5)"},
    {"ISO-8859-9", "Turkish (ISO Latin 5)"},
    {"x-mac-turkish", "Turkish (Mac OS)"},
    {"windows-1255", "Hebrew (Windows)"},
    {"ISO-8859-8", "Hebrew (ISO 8859-8)"},
    {"windows-1256", "Arabic (Windows)"},
    {"ISO-8859-6", "Arabic (ISO 8859-6)"},
    {"windows-1258", "Vietnamese (Windows)"},
    {"windows-874", "Thai (Windows, DOS)"},
    {"Shift_JIS", "Japanese (Shift JIS)"},
    {"EUC-JP", "Japanese (EUC)"},
    {"ISO-2022-JP", "Japanese (ISO 2022-JP)"},
    {"GB18030", "Chinese (GB 18030)"},
    {"GBK", "Simplified Chinese (GBK)"},
    {"EUC-CN", "Simplified Chinese (EUC)"},
    {"HZ-GB-2312", "Simplified Chinese (HZ GB 2312)"},
    {"Big5", "Traditional Chinese (Big 5)"},
    {"Big5-HKSCS", "Traditional Chinese (Big 5 HKSCS)"},
    {"EUC-KR", "Korean (EUC)"},
    {"windows-949", "Korean (Windows, DOS)"},
    {"ISO-2022-KR", "Korean (ISO 2022-KR)"},
};

}  // namespace

const std::vector<StringEncoding>& StringEncodings::available() {
  static const std::vector<StringEncoding> list = [] {
    std::vector<StringEncoding> result;
    for (const auto& [converterName, localizedName] : kOfferedEncodings) {
      result.push_back(StringEncoding{converterName, localizedName});
    }
    return result;
  }();
  return list;
}

const std::vector<std::string>& StringEncodings::localizedNames() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> result;
    for (const StringEncoding& encoding : available()) {
      result.push_back(encoding.localizedName);
    }
    return result;
  }();
  return names;
}

std::optional<std::size_t> StringEncodings::indexOfName(std::string_view name) {
  const std::vector<StringEncoding>& list = available();
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (list[i].localizedName == name) {
      return i;
    }
  }
  // Any alias resolves to its converter's canonical name, which is compared with each entry's.
  UErrorCode status = U_ZERO_ERROR;
  const std::string wanted(name);
  const char* canonical = ucnv_getAlias(wanted.c_str(), 0, &status);
  if (U_FAILURE(status) || canonical == nullptr) {
    return std::nullopt;
  }
  for (std::size_t i = 0; i < list.size(); ++i) {
    status = U_ZERO_ERROR;
    const char* entry = ucnv_getAlias(list[i].converterName.c_str(), 0, &status);
    if (U_SUCCESS(status) && entry != nullptr && ucnv_compareNames(entry, canonical) == 0) {
      return i;
    }
  }
  return std::nullopt;
}

std::optional<std::string> StringEncodings::decode(std::string_view bytes, const std::string& encoding) {
  return convert(bytes, encoding, UCNV_TO_U_CALLBACK_STOP);
}

std::optional<std::string> StringEncodings::decodeReplacing(std::string_view bytes,
                                                            const std::string& encoding) {
  return convert(bytes, encoding, UCNV_TO_U_CALLBACK_SUBSTITUTE);
}

std::optional<StringEncodings::ByteOrderMark> StringEncodings::byteOrderMark(std::string_view bytes) {
  if (bytes.starts_with("\xEF\xBB\xBF")) {
    return ByteOrderMark{"UTF-8", 3};
  }
  if (bytes.starts_with("\xFF\xFE")) {
    return ByteOrderMark{"UTF-16LE", 2};
  }
  if (bytes.starts_with("\xFE\xFF")) {
    return ByteOrderMark{"UTF-16BE", 2};
  }
  return std::nullopt;
}

std::optional<std::string> StringEncodings::decodeDetected(std::string_view bytes) {
  if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int32_t>::max())) {
    return std::nullopt;
  }
  if (const std::optional<ByteOrderMark> mark = byteOrderMark(bytes)) {
    return decode(bytes.substr(mark->length), mark->encoding);
  }
  if (isValidUtf8(bytes)) {
    return std::string(bytes);
  }
  // Windows Latin 1 leaves five bytes undefined; Latin 1 takes every byte.
  if (std::optional<std::string> text = decode(bytes, "windows-1252")) {
    return text;
  }
  return decode(bytes, "ISO-8859-1");
}

}  // namespace qva
