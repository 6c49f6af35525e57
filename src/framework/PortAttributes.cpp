#include "framework/PortAttributes.h"

namespace qva {

PortDescription PortDescription::port(std::string key, PortType type, std::optional<std::string> name,
                                      Value defaultValue) {
  PortDescription description;
  description.key = std::move(key);
  description.type = type;
  description.attributes.name = std::move(name);
  description.attributes.defaultValue = std::move(defaultValue);
  return description;
}

PortDescription& PortDescription::withMinimum(double minimum) {
  attributes.minimum = minimum;
  return *this;
}

PortDescription& PortDescription::withMaximum(double maximum) {
  attributes.maximum = maximum;
  return *this;
}

PortDescription& PortDescription::withMenu(std::vector<std::string> menuItems) {
  attributes.menuItems = std::move(menuItems);
  return *this;
}

PortDescription& PortDescription::withExplicitType() {
  attributes.type = type;
  return *this;
}

}  // namespace qva
