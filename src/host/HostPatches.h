#pragma once

namespace qva {

class PatchRegistry;

// The host's own patches (class names start with "Host"): the background clear and the billboard.
void registerHostPatches(PatchRegistry& registry);

}  // namespace qva
