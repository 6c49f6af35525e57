#include "host/control/PlayoutStateJson.h"

#include "host/ValueJson.h"

namespace qva {

PropertyList PlayoutStateJson::encode(const PlayoutState& state) {
  PropertyList inputs = PropertyList::array();
  for (const PublishedInputState& input : state.inputs) {
    PropertyList json = {
        {"name", input.name}, {"type", portTypeName(input.type)}, {"value", ValueJson::encode(input.value)}};
    if (input.minimum) {
      json["minimum"] = ValueJson::encodeNumber(*input.minimum);
    }
    if (input.maximum) {
      json["maximum"] = ValueJson::encodeNumber(*input.maximum);
    }
    if (!input.menuItems.empty()) {
      json["menuItems"] = input.menuItems;
    }
    inputs.push_back(std::move(json));
  }
  PropertyList outputs = PropertyList::array();
  for (const PublishedOutputState& output : state.outputs) {
    outputs.push_back({{"name", output.name}, {"value", ValueJson::encode(output.value)}});
  }
  const PlayoutPacing& pacing = state.pacing;
  return {{"composition", state.composition},
          {"time", ValueJson::encodeNumber(state.time)},
          {"frame", state.frame},
          {"frameRate", ValueJson::encodeNumber(state.frameRate)},
          {"pacing",
           {{"framesShown", pacing.framesShown},
            {"framesLate", pacing.framesLate},
            {"framesDropped", pacing.framesDropped},
            {"framesRepeated", pacing.framesRepeated},
            {"renderMilliseconds", ValueJson::encodeNumber(pacing.renderMilliseconds)},
            {"outputMilliseconds", ValueJson::encodeNumber(pacing.outputMilliseconds)}}},
          {"inputs", std::move(inputs)},
          {"outputs", std::move(outputs)}};
}

std::string PlayoutStateJson::text(const PropertyList& json) {
  return json.dump(-1, ' ', false, PropertyList::error_handler_t::replace);
}

}  // namespace qva
