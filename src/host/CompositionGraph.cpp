#include "host/CompositionGraph.h"

#include <queue>
#include <stdexcept>
#include <tuple>

#include "foundation/gpi/GpiDriverSelection.h"
#include "host/SimulatedGpiSettings.h"
#include "host/ValueJson.h"

namespace qva {

namespace {

bool isScalar(PortType type) {
  return type == PortType::Boolean || type == PortType::Index || type == PortType::Number ||
         type == PortType::String;
}

bool connectable(PortType from, PortType to) {
  return from == to || (isScalar(from) && isScalar(to));
}

}  // namespace

CompositionGraph::CompositionGraph(const Composition& composition, const PatchRegistry& registry,
                                   ExecutionContext& context, TaskQueue& queue)
    : queue_(queue), publishedInputs_(composition.publishedInputs()) {
  // GPI patches take the driver in place when they are created; the simulated box lives as long as they do.
  std::optional<ScopedGpiDriver> simulatedGpi;
  if (composition.simulatedGpiBox()) {
    auto box = std::make_shared<SimulatedGpiBox>(false);
    SimulatedGpiSettings::apply(*composition.simulatedGpiBox(), *box);
    simulatedGpi.emplace(std::move(box));
  }
  for (const Composition::PatchEntry& entry : composition.patches()) {
    std::unique_ptr<Patch> patch = registry.create(entry.className);
    if (!patch) {
      throw composition.errorAt("unknown patch class \"" + entry.className + "\" (see qva list)",
                                entry.className, entry.id);
    }
    for (const auto& [key, value] : entry.settings.items()) {
      const auto& keys = patch->patchClass().plugInKeys;
      if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
        throw composition.errorAt("unknown setting \"" + key + "\" of " + entry.className, key, entry.id);
      }
      patch->setSerializedValueForKey(value, key);
    }
    for (const auto& [key, json] : entry.inputs.items()) {
      const Patch::InputPort* port = patch->findInputPort(key);
      if (port == nullptr) {
        throw composition.errorAt("unknown input port \"" + key + "\" of " + entry.className, key, entry.id);
      }
      try {
        patch->setInputValue(key, ValueJson::decode(json, port->description.type));
      } catch (const std::invalid_argument& error) {
        throw composition.errorAt("input \"" + key + "\" of \"" + entry.id + "\": " + error.what(), key,
                                  entry.id);
      }
    }
    nodes_.push_back(
        {entry.id, entry.layer, std::make_unique<PatchHost>(std::move(patch), context), {}, std::nullopt});
  }

  for (const Composition::Connection& connection : composition.connections()) {
    const std::size_t source = nodeIndex(connection.from.patchId);
    const std::size_t destination = nodeIndex(connection.to.patchId);
    const Patch::OutputPort* output = nodes_[source].host->patch().findOutputPort(connection.from.portKey);
    if (output == nullptr && nodes_[source].host->start()) {
      // Ports a patch makes from a document it finds only once it knows the composition's folder (a
      // relative path) exist after its start, which would come before the first frame anyway.
      output = nodes_[source].host->patch().findOutputPort(connection.from.portKey);
    }
    const Patch::InputPort* input = nodes_[destination].host->patch().findInputPort(connection.to.portKey);
    if (output == nullptr || input == nullptr) {
      throw composition.errorAt("connection \"" + connection.text + "\" names an unknown " +
                                    (output == nullptr ? "output" : "input") + " port",
                                connection.text);
    }
    if (!connectable(output->description.type, input->description.type)) {
      throw composition.errorAt("connection \"" + connection.text + "\" joins a " +
                                    std::string(portTypeName(output->description.type)) + " output to a " +
                                    std::string(portTypeName(input->description.type)) + " input",
                                connection.text);
    }
    for (const Node::Link& link : nodes_[destination].links) {
      if (link.inputKey == connection.to.portKey) {
        throw composition.errorAt("input \"" + connection.to.text() + "\" has two connections",
                                  connection.text);
      }
    }
    nodes_[destination].links.push_back({source, connection.from.portKey, connection.to.portKey});
  }

  for (std::size_t index = 0; index < nodes_.size(); ++index) {
    const std::optional<PortReference>& timeSource = composition.patches()[index].timeSource;
    if (!timeSource) {
      continue;
    }
    const std::size_t source = nodeIndex(timeSource->patchId);
    const Patch::OutputPort* output = nodes_[source].host->patch().findOutputPort(timeSource->portKey);
    if (output == nullptr || output->description.type != PortType::Number) {
      throw composition.errorAt("the time base of \"" + nodes_[index].id + "\" must be a Number output",
                                timeSource->text());
    }
    nodes_[index].timeLink = Node::Link{source, timeSource->portKey, ""};
  }

  for (const auto& [name, port] : publishedInputs_) {
    inputPort(port);
    const Node& node = nodes_[nodeIndex(port.patchId)];
    for (const Node::Link& link : node.links) {
      if (link.inputKey == port.portKey) {
        throw composition.errorAt("published input \"" + name + "\" is also connected", name);
      }
    }
  }
  for (const auto& [name, port] : composition.publishedOutputs()) {
    if (nodes_[nodeIndex(port.patchId)].host->patch().findOutputPort(port.portKey) == nullptr) {
      throw composition.errorAt("published output \"" + name + "\" names an unknown port", name);
    }
  }

  // Kahn's algorithm; among ready nodes non-consumers go first, consumers by layer, then file order.
  std::vector<std::size_t> pendingInputs(nodes_.size(), 0);
  std::vector<std::vector<std::size_t>> downstream(nodes_.size());
  for (std::size_t index = 0; index < nodes_.size(); ++index) {
    for (const Node::Link& link : nodes_[index].links) {
      ++pendingInputs[index];
      downstream[link.source].push_back(index);
    }
    if (nodes_[index].timeLink) {
      ++pendingInputs[index];
      downstream[nodes_[index].timeLink->source].push_back(index);
    }
  }
  using Rank = std::tuple<bool, int, std::size_t>;
  std::priority_queue<Rank, std::vector<Rank>, std::greater<>> ready;
  const auto rank = [this](std::size_t index) {
    const bool consumer = nodes_[index].host->patch().patchClass().executionMode == ExecutionMode::Consumer;
    return Rank{consumer, consumer ? nodes_[index].layer : 0, index};
  };
  for (std::size_t index = 0; index < nodes_.size(); ++index) {
    if (pendingInputs[index] == 0) {
      ready.push(rank(index));
    }
  }
  while (!ready.empty()) {
    const std::size_t index = std::get<2>(ready.top());
    ready.pop();
    order_.push_back(index);
    for (const std::size_t next : downstream[index]) {
      if (--pendingInputs[next] == 0) {
        ready.push(rank(next));
      }
    }
  }
  if (order_.size() != nodes_.size()) {
    for (std::size_t index = 0; index < nodes_.size(); ++index) {
      if (pendingInputs[index] != 0) {
        throw composition.errorAt("the connections form a cycle through patch \"" + nodes_[index].id + "\"",
                                  nodes_[index].id);
      }
    }
  }
}

CompositionGraph::~CompositionGraph() {
  stop();
}

std::size_t CompositionGraph::nodeIndex(const std::string& id) const {
  for (std::size_t index = 0; index < nodes_.size(); ++index) {
    if (nodes_[index].id == id) {
      return index;
    }
  }
  throw std::invalid_argument("no patch \"" + id + "\" in the composition");
}

const Patch::InputPort& CompositionGraph::inputPort(const PortReference& port) const {
  const Patch::InputPort* input = nodes_[nodeIndex(port.patchId)].host->patch().findInputPort(port.portKey);
  if (input == nullptr) {
    throw CompositionError("no input port \"" + port.text() + "\" in the composition");
  }
  return *input;
}

PortType CompositionGraph::publishedInputType(const std::string& name) const {
  auto found = publishedInputs_.find(name);
  if (found == publishedInputs_.end()) {
    throw std::invalid_argument("no published input \"" + name + "\"");
  }
  return inputPort(found->second).description.type;
}

void CompositionGraph::setPublishedInput(const std::string& name, const Value& value) {
  publishedInputType(name);
  pendingInputs_.emplace_back(publishedInputs_.at(name), value);
}

void CompositionGraph::evaluate(double time, const Arguments& arguments) {
  for (const auto& [port, value] : pendingInputs_) {
    nodes_[nodeIndex(port.patchId)].host->patch().setInputValue(port.portKey, value);
  }
  pendingInputs_.clear();
  queue_.pump();
  for (const std::size_t index : order_) {
    Node& node = nodes_[index];
    Patch& patch = node.host->patch();
    for (const Node::Link& link : node.links) {
      const Patch::OutputPort* output = nodes_[link.source].host->patch().findOutputPort(link.outputKey);
      if (output != nullptr) {
        patch.setInputValue(link.inputKey, output->value);
      }
    }
    // A patch whose start failed is tried again at the next frame and does not run meanwhile.
    if (!node.host->started() && !node.host->start()) {
      continue;
    }
    node.host->enable();
    double nodeTime = time;
    if (node.timeLink) {
      const Patch::OutputPort* clock =
          nodes_[node.timeLink->source].host->patch().findOutputPort(node.timeLink->outputKey);
      nodeTime = clock != nullptr ? clock->value.numberValue() : time;
    }
    node.host->runFrame(nodeTime, arguments);
  }
}

void CompositionGraph::stop() {
  for (Node& node : nodes_) {
    node.host->stop();
  }
}

const Value& CompositionGraph::outputValue(const PortReference& port) const {
  static const Value none;
  const Patch::OutputPort* output =
      nodes_[nodeIndex(port.patchId)].host->patch().findOutputPort(port.portKey);
  return output != nullptr ? output->value : none;
}

}  // namespace qva
