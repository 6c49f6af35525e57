#include "patches/files/FilePatches.h"

#include "framework/PatchRegistry.h"
#include "patches/files/QVADirectoryScannerPlugIn.h"
#include "patches/files/QVAImageLoaderPlugIn.h"
#include "patches/files/QVALoggerPlugIn.h"
#include "patches/files/QVAPathInfoPlugIn.h"
#include "patches/files/QVAPathWatcherPlugIn.h"

namespace qva {

void registerFilePatches(PatchRegistry& registry) {
  registry.add(QVADirectoryScannerPlugIn::patchClass());
  registry.add(QVAPathInfoPlugIn::patchClass());
  registry.add(QVAPathWatcherPlugIn::patchClass());
  registry.add(QVALoggerPlugIn::patchClass());
  registry.add(QVAImageLoaderPlugIn::patchClass());
}

}  // namespace qva
