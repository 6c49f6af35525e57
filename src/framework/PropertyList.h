#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string_view>

namespace qva {

// A property-list value: string, number (integer or real), boolean, array, ordered dictionary or bytes
// (a JSON binary). Internal settings, per-frame arguments and the context's user information use it.
using PropertyList = nlohmann::ordered_json;

// How deep arrays and objects may nest in parsed text. Copying, comparing and printing a value recurse
// once a level, and text nested a hundred thousand levels deep would overflow the stack.
constexpr std::size_t kPropertyListMaximumDepth = 512;

// Parses JSON text as PropertyList::parse does, and refuses text nested deeper than
// kPropertyListMaximumDepth with a parse error that names the line and column of the first bracket too
// deep. Without exceptions, bad text gives a discarded value.
PropertyList parsePropertyList(std::string_view text, bool allowExceptions = true);

// The number of a property-list value as a double: numbers as they are, booleans as 0 or 1, strings by
// their leading number (0 when there is none), anything else 0.
double propertyListDouble(const PropertyList& value);

// The integer value of a property-list value, by the same rules as propertyListDouble, truncated.
long long propertyListInteger(const PropertyList& value);

// The string of a property-list value: strings as they are, numbers in their shortest form, else empty.
std::string propertyListString(const PropertyList& value);

}  // namespace qva
