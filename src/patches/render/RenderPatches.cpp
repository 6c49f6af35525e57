#include "patches/render/RenderPatches.h"

#include "framework/PatchRegistry.h"
#include "patches/render/QVACirclePlugIn.h"
#include "patches/render/QVAPolygonPlugIn.h"
#include "patches/render/QVARoundedRectPlugIn.h"
#include "patches/render/QVASafeAreasPlugIn.h"
#include "patches/render/QVASkewedRectanglePlugIn.h"
#include "patches/render/QVATexturedSquarePlugIn.h"

namespace qva {

void registerRenderPatches(PatchRegistry& registry) {
  registry.add(QVACirclePlugIn::patchClass());
  registry.add(QVAPolygonPlugIn::patchClass());
  registry.add(QVARoundedRectPlugIn::patchClass());
  registry.add(QVASkewedRectanglePlugIn::patchClass());
  registry.add(QVASafeAreasPlugIn::patchClass());
  registry.add(QVATexturedSquarePlugIn::patchClass());
}

}  // namespace qva
