#pragma once

#include <string>
#include <vector>

#include "host/DriveSession.h"
#include "patches/AllPatches.h"

namespace qva {

// The lines `qva drive` answers for a script, with the bundled patches unless another registry is given.
inline std::vector<PropertyList> driveScript(const PropertyList& script,
                                             const PatchRegistry& registry = bundledPatches(),
                                             DriveOptions options = {}) {
  options.registry = &registry;
  return DriveSession::runScript(script, options);
}

// The lines `qva drive` answers for steps run against one bundled patch of the class.
inline std::vector<PropertyList> drivePatch(const std::string& className, const PropertyList& steps,
                                            const PropertyList& settings = PropertyList::object(),
                                            const PropertyList& context = PropertyList::object()) {
  return driveScript({{"class", className}, {"context", context}, {"settings", settings}, {"steps", steps}});
}

// The keys of the ports a "ports" line lists on one side (its "inputs" or its "outputs").
inline std::vector<std::string> listedPortKeys(const PropertyList& ports) {
  std::vector<std::string> keys;
  for (const PropertyList& port : ports) {
    keys.push_back(port["key"].get<std::string>());
  }
  return keys;
}

}  // namespace qva
