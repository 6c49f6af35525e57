#pragma once

#include <optional>
#include <string>

namespace qva {

// Settings-view transformers, registered for bindings by class name.
struct FormatStringToArgumentCount {
  // The number of "%@" placeholders: the pieces the string splits into at "%@", minus 1.
  static std::optional<int> transformedValue(const std::optional<std::string>& formatString);
};

struct StringToFileURL {
  // A file URL for the path; a relative path is taken from the working folder.
  static std::optional<std::string> transformedValue(const std::optional<std::string>& path);
  // The path of a file URL; none for none or for a URL that is not a file URL.
  static std::optional<std::string> reverseTransformedValue(const std::optional<std::string>& url);
};

}  // namespace qva
