#pragma once

namespace qva {

class PatchRegistry;

void registerMediaPatches(PatchRegistry& registry);

}  // namespace qva
