#pragma once

#include "foundation/gpi/SimulatedGpiBox.h"
#include "framework/PropertyList.h"

namespace qva::SimulatedGpiSettings {

// Whether an object (a drive script's context, a composition) selects the simulated GPI box with
// "gpiDriver": "simulated"; throws std::invalid_argument for any other "gpiDriver" value.
bool selectsSimulatedBox(const PropertyList& object);

// Checks the state given for a simulated box: "attached" (Boolean), "inputValue" (0 to 65535),
// "registerStatus" and "writeStatus" (32-bit integers), each optional; throws std::invalid_argument
// naming the first field that is wrong or unknown ("op" is let through, for drive steps).
void check(const PropertyList& state);
// Sets what the (checked) state gives; fields left out keep their value.
void apply(const PropertyList& state, SimulatedGpiBox& box);

}  // namespace qva::SimulatedGpiSettings
