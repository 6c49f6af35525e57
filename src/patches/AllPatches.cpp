#include "patches/AllPatches.h"

#include "patches/data/DataPatches.h"
#include "patches/files/FilePatches.h"
#include "patches/subtitles/SubtitlePatches.h"
#include "patches/timing/TimingPatches.h"

namespace qva {

void registerAllPatches(PatchRegistry& registry) {
  registerTimingPatches(registry);
  registerSubtitlePatches(registry);
  registerDataPatches(registry);
  registerFilePatches(registry);
}

}  // namespace qva
