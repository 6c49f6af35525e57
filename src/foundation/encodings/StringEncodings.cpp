#include "foundation/encodings/StringEncodings.h"

#include <unicode/ucnv.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>

#include <limits>
#include <memory>

namespace qva {

namespace {

struct ConverterCloser {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};

bool isValidUtf8(std::string_view bytes) {
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8(nullptr, 0, nullptr, bytes.data(), static_cast<int32_t>(bytes.size()), &status);
  return status == U_BUFFER_OVERFLOW_ERROR || U_SUCCESS(status) || status == U_STRING_NOT_TERMINATED_WARNING;
}

}  // namespace

const std::vector<std::string>& StringEncodings::names() {
  static const std::vector<std::string> list = [] {
    std::vector<std::string> result;
    const int32_t count = ucnv_countAvailable();
    result.reserve(static_cast<std::size_t>(count));
    for (int32_t i = 0; i < count; ++i) {
      result.emplace_back(ucnv_getAvailableName(i));
    }
    return result;
  }();
  return list;
}

std::optional<std::size_t> StringEncodings::indexOfName(std::string_view name) {
  const std::vector<std::string>& list = names();
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (list[i] == name) {
      return i;
    }
  }
  return std::nullopt;
}

std::optional<std::string> StringEncodings::decode(std::string_view bytes, const std::string& encoding) {
  if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int32_t>::max())) {
    return std::nullopt;
  }
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<UConverter, ConverterCloser> converter(ucnv_open(encoding.c_str(), &status));
  if (U_FAILURE(status)) {
    return std::nullopt;
  }
  ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  icu::UnicodeString text(bytes.data(), static_cast<int32_t>(bytes.size()), converter.get(), status);
  if (U_FAILURE(status) || text.isBogus()) {
    return std::nullopt;
  }
  std::string utf8;
  text.toUTF8String(utf8);
  return utf8;
}

std::optional<std::string> StringEncodings::decodeDetected(std::string_view bytes) {
  if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int32_t>::max())) {
    return std::nullopt;
  }
  if (bytes.starts_with("\xEF\xBB\xBF")) {
    return decode(bytes.substr(3), "UTF-8");
  }
  if (bytes.starts_with("\xFF\xFE")) {
    return decode(bytes.substr(2), "UTF-16LE");
  }
  if (bytes.starts_with("\xFE\xFF")) {
    return decode(bytes.substr(2), "UTF-16BE");
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
