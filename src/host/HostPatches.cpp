#include "host/HostPatches.h"

#include "framework/PatchRegistry.h"
#include "host/HostBillboard.h"
#include "host/HostClear.h"
#include "patches/AllPatches.h"

namespace qva {

void registerHostPatches(PatchRegistry& registry) {
  registry.add(HostClear::patchClass());
  registry.add(HostBillboard::patchClass());
}

const PatchRegistry& availablePatches() {
  static const PatchRegistry registry = [] {
    PatchRegistry all = bundledPatches();
    registerHostPatches(all);
    return all;
  }();
  return registry;
}

}  // namespace qva
