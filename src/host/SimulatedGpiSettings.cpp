#include "host/SimulatedGpiSettings.h"

#include <cstdint>
#include <limits>
#include <stdexcept>

namespace qva::SimulatedGpiSettings {

namespace {

// Whether value is an integer from minimum (at most 0) to maximum.
bool isIntegerIn(const PropertyList& value, std::int64_t minimum, std::int64_t maximum) {
  if (value.is_number_unsigned()) {
    return value.get<std::uint64_t>() <= static_cast<std::uint64_t>(maximum);
  }
  return value.is_number_integer() && value.get<std::int64_t>() >= minimum &&
         value.get<std::int64_t>() <= maximum;
}

}  // namespace

bool selectsSimulatedBox(const PropertyList& object) {
  if (!object.is_object() || !object.contains("gpiDriver")) {
    return false;
  }
  if (object["gpiDriver"] != "simulated") {
    throw std::invalid_argument("\"gpiDriver\" can only be \"simulated\"");
  }
  return true;
}

void check(const PropertyList& state) {
  if (!state.is_object()) {
    throw std::invalid_argument("the simulated GPI box's state must be an object");
  }
  constexpr auto kStatusMinimum = std::numeric_limits<std::int32_t>::min();
  constexpr auto kStatusMaximum = std::numeric_limits<std::int32_t>::max();
  for (const auto& [key, value] : state.items()) {
    if (key == "attached") {
      if (!value.is_boolean()) {
        throw std::invalid_argument("\"attached\" must be true or false");
      }
    } else if (key == "inputValue") {
      if (!isIntegerIn(value, 0, std::numeric_limits<std::uint16_t>::max())) {
        throw std::invalid_argument("\"inputValue\" must be an integer from 0 to 65535");
      }
    } else if (key == "registerStatus" || key == "writeStatus") {
      if (!isIntegerIn(value, kStatusMinimum, kStatusMaximum)) {
        throw std::invalid_argument("\"" + key + "\" must be a 32-bit integer status code");
      }
    } else if (key != "op") {  // a drive step carries its op beside the state
      throw std::invalid_argument("unknown field \"" + key + "\" of the simulated GPI box");
    }
  }
}

void apply(const PropertyList& state, SimulatedGpiBox& box) {
  if (state.contains("attached")) {
    box.setAttached(state["attached"].get<bool>());
  }
  if (state.contains("inputValue")) {
    box.setInputValue(state["inputValue"].get<std::uint16_t>());
  }
  if (state.contains("registerStatus")) {
    box.setRegisterStatus(state["registerStatus"].get<std::int32_t>());
  }
  if (state.contains("writeStatus")) {
    box.setWriteStatus(state["writeStatus"].get<std::int32_t>());
  }
}

}  // namespace qva::SimulatedGpiSettings
