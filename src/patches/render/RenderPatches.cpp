#include "patches/render/RenderPatches.h"

#include "framework/PatchRegistry.h"
#include "patches/files/QVAImageLoaderPlugIn.h"
#include "patches/render/QCCirclePlugIn.h"
#include "patches/render/QCPolygonPlugIn.h"
#include "patches/render/QCRoundedRectPlugIn.h"
#include "patches/render/QCSkewedRectanglePlugIn.h"
#include "patches/render/QVASafeAreasPlugIn.h"
#include "patches/render/QVATexturedSquarePlugIn.h"

namespace qva {

void registerRenderPatches(PatchRegistry& registry) {
  registry.add(QCCirclePlugIn::patchClass());
  registry.add(QCPolygonPlugIn::patchClass());
  registry.add(QCRoundedRectPlugIn::patchClass());
  registry.add(QCSkewedRectanglePlugIn::patchClass());
  registry.add(QVASafeAreasPlugIn::patchClass());
  registry.add(QVATexturedSquarePlugIn::patchClass());
  registry.add(QVAImageLoaderPlugIn::patchClass());
}

}  // namespace qva
