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
};

}  // namespace qva
