#include "patches/data/DataPatches.h"

#include "framework/PatchRegistry.h"
#include "patches/data/QVAStructureSortPlugIn.h"
#include "patches/data/QVATextFileReaderPlugIn.h"
#include "patches/data/QVAURLStringDecoderPlugIn.h"
#include "patches/data/QVAURLStringEncoderPlugIn.h"
#include "patches/data/QVAXMLPlugIn.h"

namespace qva {

void registerDataPatches(PatchRegistry& registry) {
  registry.add(QVAStructureSortPlugIn::patchClass());
  registry.add(QVAURLStringDecoderPlugIn::patchClass());
  registry.add(QVAURLStringEncoderPlugIn::patchClass());
  registry.add(QVATextFileReaderPlugIn::patchClass());
  registry.add(QVAXMLPlugIn::patchClass());
}

}  // namespace qva
