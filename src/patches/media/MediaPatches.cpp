#include "patches/media/MediaPatches.h"

#include "framework/PatchRegistry.h"
#include "patches/media/QVACompositionRendererImagePlugIn.h"
#include "patches/media/QVACompositionRendererPatchPlugIn.h"
#include "patches/media/QVAMoviePlayerPlugIn.h"

namespace qva {

void registerMediaPatches(PatchRegistry& registry) {
  registry.add(QVAMoviePlayerPlugIn::patchClass());
  registry.add(QVACompositionRendererImagePlugIn::patchClass());
  registry.add(QVACompositionRendererPatchPlugIn::patchClass());
}

}  // namespace qva
