#pragma once

namespace qva {

class PatchRegistry;

// The host's own patches (class names start with "Host"): the background clear and the billboard.
void registerHostPatches(PatchRegistry& registry);
// Every patch a composition can use: the bundle's and the host's own, made on first use.
const PatchRegistry& availablePatches();

}  // namespace qva
