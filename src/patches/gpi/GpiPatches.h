#pragma once

namespace qva {

class PatchRegistry;

void registerGpiPatches(PatchRegistry& registry);

}  // namespace qva
