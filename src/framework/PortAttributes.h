#pragma once

#include <optional>
#include <string>
#include <vector>

#include "framework/Value.h"

namespace qva {

// The attribute dictionary of a port: its title, default, limits, menu and explicit type.
struct PortAttributes {
  std::optional<std::string> name;
  Value defaultValue;
  std::optional<double> minimum;
  std::optional<double> maximum;
  std::vector<std::string> menuItems;
  std::optional<PortType> type;
};

struct PortDescription {
  std::string key;
  PortType type = PortType::Number;
  PortAttributes attributes;

  // A port with a title and, for inputs, a default; the with... calls add the other attributes:
  // port("inputValue", PortType::Index, "Value", Value(0u)).withMaximum(12).withMenu(items).
  static PortDescription port(std::string key, PortType type, std::optional<std::string> name = std::nullopt,
                              Value defaultValue = Value());
  PortDescription& withMinimum(double minimum);
  PortDescription& withMaximum(double maximum);
  PortDescription& withMenu(std::vector<std::string> menuItems);
  // Declares the type explicitly in the attributes, as a structure port whose property type would not.
  PortDescription& withExplicitType();
};

}  // namespace qva
