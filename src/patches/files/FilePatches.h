#pragma once

namespace qva {

class PatchRegistry;

void registerFilePatches(PatchRegistry& registry);

}  // namespace qva
