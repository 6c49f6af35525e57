#include "framework/StringCase.h"

#include <algorithm>

namespace qva {

std::string asciiLowercased(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return lower;
}

}  // namespace qva
