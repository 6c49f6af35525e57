// Feeds arbitrary text to the composition reader and builds the graph of what it accepts: settings,
// input values, connections, time bases and published ports of any shape must end in a
// CompositionError or a graph, never a crash. Nothing is evaluated, so no patch reads files or the
// network.
#include <cstddef>
#include <cstdint>
#include <string>

#include "foundation/dispatch/TaskQueue.h"
#include "framework/ExecutionContext.h"
#include "host/Composition.h"
#include "host/CompositionGraph.h"
#include "host/HostPatches.h"
#include "patches/AllPatches.h"

namespace {

const qva::PatchRegistry& registry() {
  static const qva::PatchRegistry patches = [] {
    qva::PatchRegistry bundled = qva::bundledPatches();
    qva::registerHostPatches(bundled);
    return bundled;
  }();
  return patches;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    const qva::Composition composition = qva::Composition::parse(text, "fuzz.qvc");
    qva::TaskQueue queue;
    qva::ExecutionContext context(queue);
    const qva::CompositionGraph graph(composition, registry(), context, queue);
  } catch (const qva::CompositionError&) {
  }
  return 0;
}
