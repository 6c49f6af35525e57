#include "patches/AllPatches.h"

#include "patches/timing/TimingPatches.h"

namespace qva {

void registerAllPatches(PatchRegistry& registry) {
  registerTimingPatches(registry);
}

}  // namespace qva
