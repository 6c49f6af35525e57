#include "patches/subtitles/SubtitlePatches.h"

#include "framework/PatchRegistry.h"
#include "patches/subtitles/QVAStyledSubtitlesPlugIn.h"
#include "patches/subtitles/QVAVideoSubtitlerPlugIn.h"

namespace qva {

void registerSubtitlePatches(PatchRegistry& registry) {
  registry.add(QVAVideoSubtitlerPlugIn::patchClass());
  registry.add(QVAStyledSubtitlesPlugIn::patchClass());
}

}  // namespace qva
