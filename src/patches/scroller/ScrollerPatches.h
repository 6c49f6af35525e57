#pragma once

namespace qva {

class PatchRegistry;

// The text scroller family.
void registerScrollerPatches(PatchRegistry& registry);

}  // namespace qva
