#pragma once

#include <nlohmann/json.hpp>

namespace qva {

// A property-list value: string, number (integer or real), boolean, array, ordered dictionary or bytes
// (a JSON binary). Internal settings, per-frame arguments and the context's user information use it.
using PropertyList = nlohmann::ordered_json;

// The number of a property-list value as a double: numbers as they are, booleans as 0 or 1, strings by
// their leading number (0 when there is none), anything else 0.
double propertyListDouble(const PropertyList& value);

// The integer value of a property-list value, by the same rules as propertyListDouble, truncated.
long long propertyListInteger(const PropertyList& value);

// The string of a property-list value: strings as they are, numbers in their shortest form, else empty.
std::string propertyListString(const PropertyList& value);

}  // namespace qva
