#include "patches/network/NetworkPatches.h"

#include "framework/PatchRegistry.h"
#include "patches/network/QVAHTTPRequestPlugIn.h"

namespace qva {

void registerNetworkPatches(PatchRegistry& registry) {
  registry.add(QVAHTTPRequestPlugIn::patchClass());
}

}  // namespace qva
