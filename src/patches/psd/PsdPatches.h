#pragma once

namespace qva {

class PatchRegistry;

// The Photoshop document patches: the importer and the layer patch.
void registerPsdPatches(PatchRegistry& registry);

}  // namespace qva
