#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "foundation/dispatch/TaskQueue.h"
#include "framework/ExecutionContext.h"
#include "framework/PatchRegistry.h"
#include "host/Composition.h"
#include "host/PatchHost.h"

namespace qva {

// The running patches of a composition: created, configured and checked against the composition's
// ports, then evaluated frame by frame in dependency order (consumers in layer order).
class CompositionGraph {
 public:
  struct Node {
    std::string id;
    int layer = 0;
    std::unique_ptr<PatchHost> host;
    // Upstream connections into this node: (source node index, output key, input key).
    struct Link {
      std::size_t source;
      std::string outputKey;
      std::string inputKey;
    };
    std::vector<Link> links;
    // The output whose value is this node's time, when it has an external time base.
    std::optional<Link> timeLink;
  };

  // Throws CompositionError for unknown classes, ports, settings that do not apply, incompatible
  // connections or cycles.
  CompositionGraph(const Composition& composition, const PatchRegistry& registry, ExecutionContext& context,
                   TaskQueue& queue);
  ~CompositionGraph();

  // Sets a published input at the start of the next frame. Throws std::invalid_argument for an unknown
  // name.
  void setPublishedInput(const std::string& name, const Value& value);
  PortType publishedInputType(const std::string& name) const;

  // Evaluates one frame at composition time.
  void evaluate(double time, const Arguments& arguments = Arguments());
  // Disables and stops every patch.
  void stop();

  const Value& outputValue(const PortReference& port) const;
  const std::vector<Node>& nodes() const { return nodes_; }
  // Nodes in evaluation order.
  const std::vector<std::size_t>& order() const { return order_; }
  std::size_t nodeIndex(const std::string& id) const;

 private:
  const Patch::InputPort& inputPort(const PortReference& port) const;

  TaskQueue& queue_;
  std::vector<Node> nodes_;
  std::vector<std::size_t> order_;
  std::map<std::string, PortReference> publishedInputs_;
  std::vector<std::pair<PortReference, Value>> pendingInputs_;
};

}  // namespace qva
