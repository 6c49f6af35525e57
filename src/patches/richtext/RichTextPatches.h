#pragma once

namespace qva {

class PatchRegistry;

void registerRichTextPatches(PatchRegistry& registry);

}  // namespace qva
