#pragma once

#include <vector>

#include "framework/PatchClass.h"
#include "framework/PropertyList.h"

namespace qva {

class Patch;

// The JSON forms of a patch class and its ports, shared by `qva drive` and `qva describe --json`.
class PatchClassJson {
 public:
  // {"name", "description", "copyright", "executionMode", "timeMode", "sortedPropertyPortKeys",
  // "plugInKeys"}.
  static PropertyList attributes(const PatchClass& patchClass);
  // {"key", "type", "attributes": {"name", "default", "min", "max", "menu"}} with those attributes present.
  static PropertyList port(const PortDescription& port);
  // {"inputs": [...], "outputs": [...]} of a patch's current ports, in port order.
  static PropertyList ports(const Patch& patch);
};

}  // namespace qva
