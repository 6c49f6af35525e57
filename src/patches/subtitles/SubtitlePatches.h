#pragma once

namespace qva {

class PatchRegistry;

void registerSubtitlePatches(PatchRegistry& registry);

}  // namespace qva
