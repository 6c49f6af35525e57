#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "framework/PortAttributes.h"

namespace qva {

class Patch;

enum class ExecutionMode { Provider = 1, Processor = 2, Consumer = 3 };
enum class TimeMode { None = 0, Idle = 1, TimeBase = 2 };

// Everything the host learns about a patch class without an instance: its attributes, modes, static
// ports (in declaration order), port order, settings keys and a factory.
struct PatchClass {
  std::string className;
  std::string name;
  std::string description;
  std::optional<std::string> copyright;
  ExecutionMode executionMode = ExecutionMode::Processor;
  TimeMode timeMode = TimeMode::None;
  std::vector<PortDescription> inputs;
  std::vector<PortDescription> outputs;
  std::optional<std::vector<std::string>> sortedPropertyPortKeys;
  std::vector<std::string> plugInKeys;
  std::function<std::unique_ptr<Patch>()> create;

  // The attributes of the static port with that key, or nullptr for a key the class does not know.
  const PortAttributes* attributesForPropertyPortWithKey(const std::string& key) const;
};

}  // namespace qva
