#include "host/HostPatches.h"

#include "framework/PatchRegistry.h"
#include "host/HostBillboard.h"
#include "host/HostClear.h"

namespace qva {

void registerHostPatches(PatchRegistry& registry) {
  registry.add(HostClear::patchClass());
  registry.add(HostBillboard::patchClass());
}

}  // namespace qva
