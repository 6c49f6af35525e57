#include "patches/timing/TimingPatches.h"

#include "framework/PatchRegistry.h"
#include "patches/timing/QVAInterpolationPlugIn.h"

namespace qva {

void registerTimingPatches(PatchRegistry& registry) {
  registry.add(QVAInterpolationPlugIn::patchClass());
}

}  // namespace qva
