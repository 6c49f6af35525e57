#pragma once

namespace qva {

class PatchRegistry;

void registerNetworkPatches(PatchRegistry& registry);

}  // namespace qva
