#include "patches/timing/TimingPatches.h"

#include "framework/PatchRegistry.h"
#include "patches/timing/ConvertTimePlugIn.h"
#include "patches/timing/DateTimeFormatPlugIn.h"
#include "patches/timing/QVADelayPlugIn.h"
#include "patches/timing/QVAInterpolationPlugIn.h"
#include "patches/timing/QVAPatchTimePlugIn.h"
#include "patches/timing/QVARenderTimePlugIn.h"
#include "patches/timing/QVASmoothPlugIn.h"
#include "patches/timing/QVAStepFunctionPlugIn.h"
#include "patches/timing/QVAStopWatchPlugIn.h"
#include "patches/timing/QVAStopframesPlugIn.h"

namespace qva {

void registerTimingPatches(PatchRegistry& registry) {
  registry.add(QVAInterpolationPlugIn::patchClass());
  registry.add(QVASmoothPlugIn::patchClass());
  registry.add(QVAStepFunctionPlugIn::patchClass());
  registry.add(QVAStopframesPlugIn::patchClass());
  registry.add(QVAStopWatchPlugIn::patchClass());
  registry.add(QVAPatchTimePlugIn::patchClass());
  registry.add(QVARenderTimePlugIn::patchClass());
  registry.add(ConvertTimePlugIn::patchClass());
  registry.add(DateTimeFormatPlugIn::patchClass());
  registry.add(QVADelayPlugIn::patchClass());
}

}  // namespace qva
