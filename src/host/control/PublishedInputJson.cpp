#include "host/control/PublishedInputJson.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "host/ValueJson.h"
#include "host/control/ControlRequestError.h"

namespace qva {

namespace {

bool isIndex(const PropertyList& json) {
  if (json.is_number_unsigned()) {
    return true;
  }
  if (json.is_number_integer()) {
    return json.get<long long>() >= 0;
  }
  if (json.is_number_float()) {
    const double number = json.get<double>();
    return number >= 0 && std::floor(number) == number;
  }
  return false;
}

// Whether JSON of this kind is meant for an input of the type. The host's own conversions are looser
// (a string reads as a number); a client that sends the wrong kind is told so instead.
bool suits(const PropertyList& json, PortType type) {
  switch (type) {
    case PortType::Boolean:
      // Show-control buttons send 1 and 0 as often as true and false.
      return json.is_boolean() || json.is_number();
    case PortType::Index:
      return isIndex(json);
    case PortType::Number:
      return json.is_number() || (json.is_string() && (json == "nan" || json == "inf" || json == "-inf"));
    case PortType::String:
      return json.is_string() || json.is_number();
    case PortType::Color:
      return json.is_array();
    case PortType::Structure:
      return json.is_array() || json.is_object();
    case PortType::Image:
      return false;
  }
  return false;
}

std::string expectation(PortType type) {
  switch (type) {
    case PortType::Boolean:
      return "true or false";
    case PortType::Index:
      return "a whole number from 0";
    case PortType::Number:
      return "a number";
    case PortType::String:
      return "a string";
    case PortType::Color:
      return "[r, g, b] or [r, g, b, a] with components from 0 to 1";
    case PortType::Structure:
      return "a JSON array or object";
    case PortType::Image:
      return "not settable by a control client";
  }
  return {};
}

}  // namespace

Value PublishedInputJson::decode(const std::string& name, const PropertyList& json,
                                 const std::vector<PublishedInputState>& inputs) {
  const auto input = std::find_if(inputs.begin(), inputs.end(), [&](const PublishedInputState& candidate) {
    return candidate.name == name;
  });
  if (input == inputs.end()) {
    throw ControlRequestError(404, "the composition publishes no input named \"" + name + "\"");
  }
  const std::string mismatch = "\"" + name + "\" is a " + std::string(portTypeName(input->type)) +
                               " input: " + expectation(input->type);
  if (!suits(json, input->type)) {
    throw ControlRequestError(400, mismatch);
  }
  try {
    return ValueJson::decode(json, input->type);
  } catch (const std::invalid_argument& error) {
    throw ControlRequestError(400, mismatch + " (" + error.what() + ")");
  }
}

PublishedInputJson::Changes PublishedInputJson::decodeAll(const PropertyList& object,
                                                          const std::vector<PublishedInputState>& inputs) {
  if (!object.is_object()) {
    throw ControlRequestError(400, "the changes must be a JSON object of input names and values");
  }
  Changes changes;
  for (const auto& [name, json] : object.items()) {
    changes.emplace_back(name, decode(name, json, inputs));
  }
  return changes;
}

}  // namespace qva
