#include "patches/scroller/ScrollerPatches.h"

#include "framework/PatchRegistry.h"
#include "patches/scroller/TextScrollerPlugIn.h"

namespace qva {

void registerScrollerPatches(PatchRegistry& registry) {
  registry.add(TextScrollerPlugIn::patchClass());
}

}  // namespace qva
