#include "framework/StringTrimming.h"

namespace qva {

std::string trimmed(std::string_view text, std::string_view characters) {
  const auto first = text.find_first_not_of(characters);
  const auto last = text.find_last_not_of(characters);
  return first == std::string_view::npos ? std::string() : std::string(text.substr(first, last - first + 1));
}

}  // namespace qva
