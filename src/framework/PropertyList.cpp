#include "framework/PropertyList.h"

#include <cmath>
#include <cstdlib>
#include <limits>

namespace qva {

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
