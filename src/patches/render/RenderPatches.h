#pragma once

namespace qva {

class PatchRegistry;

// The rendering family: the four shapes, the safe areas, the sprite, and the image loader.
void registerRenderPatches(PatchRegistry& registry);

}  // namespace qva
