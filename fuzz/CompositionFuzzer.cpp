// Feeds arbitrary text to the composition reader and builds the graph of what it accepts: settings,
// input values, connections, time bases and published ports of any shape must end in a
// CompositionError or a graph, never a crash. A composition made only of patches that need neither
// GL nor files is then played for a few frames, its shapes made small, so that values of every type
// travel along its connections.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "SafePatches.h"
#include "foundation/dispatch/TaskQueue.h"
#include "framework/ExecutionContext.h"
#include "framework/PropertyList.h"
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

// The composition with small shapes, or nothing when one of its patches may not run here.
std::optional<std::string> playableText(const qva::Composition& composition, const std::string& text) {
  for (const qva::Composition::PatchEntry& entry : composition.patches()) {
    if (!qva::fuzz::runsWithoutGLOrFiles(entry.className)) {
      return std::nullopt;
    }
  }
  qva::PropertyList json = qva::parsePropertyList(text);
  if (!json.contains("patches")) {
    return text;
  }
  for (qva::PropertyList& patch : json["patches"]) {
    if (patch.contains("inputs")) {
      qva::fuzz::capShapeSides(patch["inputs"]);
    }
  }
  return json.dump();
}

void play(const std::string& text) {
  const qva::Composition composition = qva::Composition::parse(text, "fuzz.qvc");
  qva::TaskQueue queue;
  qva::ExecutionContext context(queue);
  qva::CompositionGraph graph(composition, registry(), context, queue);
  for (const double time : {0.0, 0.5, 1.0}) {
    graph.evaluate(time);
  }
  graph.stop();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    const qva::Composition composition = qva::Composition::parse(text, "fuzz.qvc");
    {
      qva::TaskQueue queue;
      qva::ExecutionContext context(queue);
      const qva::CompositionGraph graph(composition, registry(), context, queue);
    }
    if (const std::optional<std::string> playable = playableText(composition, text)) {
      play(*playable);
    }
  } catch (const qva::CompositionError&) {
  }
  return 0;
}
