#include "framework/ValueTransformers.h"

#include <filesystem>

#include "framework/PercentEncoding.h"

namespace qva {

namespace {
constexpr std::string_view kFileScheme = "file://";
}

std::optional<int> FormatStringToArgumentCount::transformedValue(
    const std::optional<std::string>& formatString) {
  if (!formatString) {
    return std::nullopt;
  }
  int count = 0;
  for (std::size_t position = formatString->find("%@"); position != std::string::npos;
       position = formatString->find("%@", position + 2)) {
    ++count;
  }
  return count;
}

std::optional<std::string> StringToFileURL::transformedValue(const std::optional<std::string>& path) {
  if (!path) {
    return std::nullopt;
  }
  std::error_code error;
  std::filesystem::path absolute = std::filesystem::absolute(*path, error);
  std::string text = error ? *path : absolute.string();
  if (std::filesystem::is_directory(absolute, error) && !text.ends_with('/')) {
    text.push_back('/');
  }
  return std::string(kFileScheme) + percentEncode(text, "/!$&'()*+,;=:@");
}

std::optional<std::string> StringToFileURL::reverseTransformedValue(const std::optional<std::string>& url) {
  if (!url || !url->starts_with(kFileScheme)) {
    return std::nullopt;
  }
  std::string path = percentDecode(std::string_view(*url).substr(kFileScheme.size()));
  if (path.size() > 1 && path.ends_with('/')) {
    path.pop_back();
  }
  return path;
}

}  // namespace qva
