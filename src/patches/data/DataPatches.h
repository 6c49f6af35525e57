#pragma once

namespace qva {

class PatchRegistry;

void registerDataPatches(PatchRegistry& registry);

}  // namespace qva
