#pragma once

namespace qva {

class PatchRegistry;

// Registers every patch class of the bundle.
void registerAllPatches(PatchRegistry& registry);

}  // namespace qva
