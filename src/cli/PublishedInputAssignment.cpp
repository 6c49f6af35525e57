#include "cli/PublishedInputAssignment.h"

#include "cli/CommandError.h"
#include "host/CompositionGraph.h"
#include "host/ValueJson.h"

namespace qva {

PublishedInputAssignment PublishedInputAssignment::parse(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0) {
    throw CommandError("--set takes NAME=VALUE, not \"" + text + "\"");
  }
  const std::string valueText = text.substr(equals + 1);
  PropertyList value = parsePropertyList(valueText, false);
  if (value.is_discarded()) {
    value = valueText;
  }
  return {text.substr(0, equals), value};
}

void PublishedInputAssignment::applyAll(const std::vector<std::string>& texts, CompositionGraph& graph) {
  for (const std::string& text : texts) {
    const PublishedInputAssignment assignment = parse(text);
    try {
      graph.setPublishedInput(assignment.name,
                              ValueJson::decode(assignment.value, graph.publishedInputType(assignment.name)));
    } catch (const std::invalid_argument& error) {
      throw CommandError("--set " + assignment.name + ": " + error.what());
    }
  }
}

}  // namespace qva
