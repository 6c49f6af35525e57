#pragma once

namespace qva {

class PatchRegistry;

void registerTimingPatches(PatchRegistry& registry);

}  // namespace qva
