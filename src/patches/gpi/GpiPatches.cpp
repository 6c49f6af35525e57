#include "patches/gpi/GpiPatches.h"

#include "framework/PatchRegistry.h"
#include "patches/gpi/ServiceUSBPlugIn.h"

namespace qva {

void registerGpiPatches(PatchRegistry& registry) {
  registry.add(ServiceUSBPlugIn::patchClass());
}

}  // namespace qva
