#include "framework/StringFormat.h"

#include <cstdarg>
#include <cstdio>

namespace qva {

std::string formatString(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list measure;
  va_copy(measure, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, measure);
  va_end(measure);
  std::string text;
  if (length > 0) {
    text.resize(static_cast<std::size_t>(length) + 1);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text.resize(static_cast<std::size_t>(length));
  }
  va_end(arguments);
  return text;
}

}  // namespace qva
