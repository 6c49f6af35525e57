#include "framework/PropertyList.h"

#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>

namespace qva {

namespace {

// Where text first nests deeper than the maximum, counted as the JSON parser counts (lines from 0,
// columns from 1); nothing when it never does. Brackets inside strings do not count.
std::optional<nlohmann::detail::position_t> tooDeep(std::string_view text) {
  nlohmann::detail::position_t position;
  std::size_t depth = 0;
  bool inString = false;
  bool escaped = false;
  for (const char c : text) {
    ++position.chars_read_total;
    ++position.chars_read_current_line;
    if (c == '\n') {
      ++position.lines_read;
      position.chars_read_current_line = 0;
    }
    if (inString) {
      inString = escaped || c != '"';
      escaped = !escaped && c == '\\';
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > kPropertyListMaximumDepth) {
        return position;
      }
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return std::nullopt;
}

}  // namespace

PropertyList parsePropertyList(std::string_view text, bool allowExceptions) {
  if (const auto position = tooDeep(text)) {
    if (!allowExceptions) {
      return PropertyList(PropertyList::value_t::discarded);
    }
    throw PropertyList::parse_error::create(
        101, *position,
        "arrays and objects nest more than " + std::to_string(kPropertyListMaximumDepth) + " deep", nullptr);
  }
  return PropertyList::parse(text, nullptr, allowExceptions);
}

double propertyListDouble(const PropertyList& value) {
  if (value.is_number()) {
    return value.get<double>();
  }
  if (value.is_boolean()) {
    return value.get<bool>() ? 1.0 : 0.0;
  }
  if (value.is_string()) {
    const std::string& text = value.get_ref<const std::string&>();
    return std::strtod(text.c_str(), nullptr);
  }
  return 0.0;
}

long long propertyListInteger(const PropertyList& value) {
  if (value.is_number_integer()) {
    return value.get<long long>();
  }
  const double number = propertyListDouble(value);
  if (!std::isfinite(number)) {
    return 0;
  }
  constexpr double limit = static_cast<double>(std::numeric_limits<long long>::max());
  if (number >= limit) {
    return std::numeric_limits<long long>::max();
  }
  if (number <= -limit) {
    return std::numeric_limits<long long>::min();
  }
  return static_cast<long long>(number);
}

std::string propertyListString(const PropertyList& value) {
  if (value.is_string()) {
    return value.get<std::string>();
  }
  if (value.is_number()) {
    return value.dump();
  }
  return {};
}

}  // namespace qva
