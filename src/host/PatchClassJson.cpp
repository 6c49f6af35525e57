#include "host/PatchClassJson.h"

#include "framework/Patch.h"
#include "host/ValueJson.h"

namespace qva {

PropertyList PatchClassJson::attributes(const PatchClass& patchClass) {
  PropertyList json = PropertyList::object();
  json["name"] = patchClass.name;
  json["description"] = patchClass.description;
  json["copyright"] = patchClass.copyright ? PropertyList(*patchClass.copyright) : PropertyList();
  json["executionMode"] = static_cast<int>(patchClass.executionMode);
  json["timeMode"] = static_cast<int>(patchClass.timeMode);
  json["sortedPropertyPortKeys"] =
      patchClass.sortedPropertyPortKeys ? PropertyList(*patchClass.sortedPropertyPortKeys) : PropertyList();
  json["plugInKeys"] = patchClass.plugInKeys;
  return json;
}

PropertyList PatchClassJson::port(const PortDescription& port) {
  PropertyList attributes = PropertyList::object();
  const PortAttributes& source = port.attributes;
  if (source.name) {
    attributes["name"] = *source.name;
  }
  if (!source.defaultValue.isNone()) {
    attributes["default"] = ValueJson::encode(source.defaultValue);
  }
  if (source.minimum) {
    attributes["min"] = ValueJson::encodeNumber(*source.minimum);
  }
  if (source.maximum) {
    attributes["max"] = ValueJson::encodeNumber(*source.maximum);
  }
  if (!source.menuItems.empty()) {
    attributes["menu"] = source.menuItems;
  }
  return {{"key", port.key}, {"type", portTypeName(port.type)}, {"attributes", attributes}};
}

PropertyList PatchClassJson::ports(const Patch& patch) {
  PropertyList inputs = PropertyList::array();
  for (const Patch::InputPort& input : patch.inputPorts()) {
    inputs.push_back(port(input.description));
  }
  PropertyList outputs = PropertyList::array();
  for (const Patch::OutputPort& output : patch.outputPorts()) {
    outputs.push_back(port(output.description));
  }
  return {{"inputs", inputs}, {"outputs", outputs}};
}

}  // namespace qva
