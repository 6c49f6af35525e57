#include "patches/AllPatches.h"

#include "framework/PatchRegistry.h"
#include "patches/data/DataPatches.h"
#include "patches/files/FilePatches.h"
#include "patches/gpi/GpiPatches.h"
#include "patches/media/MediaPatches.h"
#include "patches/network/NetworkPatches.h"
#include "patches/psd/PsdPatches.h"
#include "patches/render/RenderPatches.h"
#include "patches/richtext/RichTextPatches.h"
#include "patches/scroller/ScrollerPatches.h"
#include "patches/subtitles/SubtitlePatches.h"
#include "patches/timing/TimingPatches.h"

namespace qva {

void registerAllPatches(PatchRegistry& registry) {
  registerTimingPatches(registry);
  registerSubtitlePatches(registry);
  registerRichTextPatches(registry);
  registerDataPatches(registry);
  registerFilePatches(registry);
  registerRenderPatches(registry);
  registerScrollerPatches(registry);
  registerNetworkPatches(registry);
  registerGpiPatches(registry);
  registerPsdPatches(registry);
  registerMediaPatches(registry);
}

const PatchRegistry& bundledPatches() {
  static const PatchRegistry registry = [] {
    PatchRegistry all;
    registerAllPatches(all);
    return all;
  }();
  return registry;
}

}  // namespace qva
