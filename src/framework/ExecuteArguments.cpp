#include "framework/ExecuteArguments.h"

namespace qva {

const PropertyList* ExecuteArguments::find(const Arguments& arguments, const char* key) {
  if (!arguments.is_object()) {
    return nullptr;
  }
  const auto found = arguments.find(key);
  return found == arguments.end() ? nullptr : &*found;
}

double ExecuteArguments::number(const Arguments& arguments, const char* key) {
  const PropertyList* value = find(arguments, key);
  return value != nullptr ? propertyListDouble(*value) : 0.0;
}

std::uint64_t ExecuteArguments::unsignedInteger(const Arguments& arguments, const char* key) {
  const PropertyList* value = find(arguments, key);
  return value != nullptr ? static_cast<std::uint64_t>(propertyListInteger(*value)) : 0;
}

bool ExecuteArguments::boolean(const Arguments& arguments, const char* key) {
  const PropertyList* value = find(arguments, key);
  return value != nullptr && propertyListInteger(*value) != 0;
}

}  // namespace qva
