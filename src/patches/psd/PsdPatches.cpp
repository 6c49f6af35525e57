#include "patches/psd/PsdPatches.h"

#include "framework/PatchRegistry.h"
#include "patches/psd/QVAPSDLayerImporterPlugIn.h"
#include "patches/psd/QVAPSDLayerPlugIn.h"

namespace qva {

void registerPsdPatches(PatchRegistry& registry) {
  registry.add(QVAPSDLayerImporterPlugIn::patchClass());
  registry.add(QVAPSDLayerPlugIn::patchClass());
}

}  // namespace qva
