#include "host/ScriptBytes.h"

#include <functional>
#include <optional>
#include <string>

#include "host/Base64.h"

namespace qva {

namespace {

using Conversion = std::function<std::optional<PropertyList>(const PropertyList& value)>;

// The value rebuilt with convert tried on it and on every member below it, outermost first; a member
// that convert replaces is not looked into.
PropertyList rebuilt(const PropertyList& value, const Conversion& convert) {
  if (std::optional<PropertyList> replacement = convert(value)) {
    return *replacement;
  }
  if (!value.is_structured()) {
    return value;
  }
  PropertyList result = value.is_array() ? PropertyList::array() : PropertyList::object();
  for (auto it = value.begin(); it != value.end(); ++it) {
    if (value.is_array()) {
      result.push_back(rebuilt(*it, convert));
    } else {
      result[it.key()] = rebuilt(*it, convert);
    }
  }
  return result;
}

}  // namespace

PropertyList ScriptBytes::fromScript(const PropertyList& value) {
  return rebuilt(value, [](const PropertyList& member) -> std::optional<PropertyList> {
    if (member.is_object() && member.size() == 1 && member.contains("data") && member["data"].is_string()) {
      if (const auto bytes = decodeBase64(member["data"].get<std::string>())) {
        return PropertyList::binary(std::vector<std::uint8_t>(bytes->begin(), bytes->end()));
      }
    }
    return std::nullopt;
  });
}

PropertyList ScriptBytes::toScript(const PropertyList& value) {
  return rebuilt(value, [](const PropertyList& member) -> std::optional<PropertyList> {
    if (!member.is_binary()) {
      return std::nullopt;
    }
    const auto& bytes = member.get_binary();
    return PropertyList{{"data", encodeBase64(std::string(bytes.begin(), bytes.end()))}};
  });
}

}  // namespace qva
