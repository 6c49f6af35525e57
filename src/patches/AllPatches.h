#pragma once

namespace qva {

class PatchRegistry;

// Registers every patch class of the bundle.
void registerAllPatches(PatchRegistry& registry);
// A registry holding every patch class of the bundle, made on first use.
const PatchRegistry& bundledPatches();

}  // namespace qva
