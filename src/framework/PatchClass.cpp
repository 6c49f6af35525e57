#include "framework/PatchClass.h"

namespace qva {

const PortAttributes* PatchClass::attributesForPropertyPortWithKey(const std::string& key) const {
  for (const auto* ports : {&inputs, &outputs}) {
    for (const PortDescription& port : *ports) {
      if (port.key == key) {
        return &port.attributes;
      }
    }
  }
  return nullptr;
}

}  // namespace qva
