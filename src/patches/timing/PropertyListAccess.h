#pragma once

#include <optional>
#include <string>
#include <vector>

#include "framework/PropertyList.h"

namespace qva {

// The entry under key when the value is a dictionary holding it; otherwise a null value. Safe for any
// property list, unlike operator[] on a const value.
const PropertyList& dictionaryEntry(const PropertyList& dictionary, const char* key);

// The dictionaries of a saved list setting, in order. A value that is not an array gives none; entries
// that are not dictionaries are skipped. Either is reported to the process log as "[owner] ..." with the
// setting's key.
std::optional<std::vector<PropertyList>> dictionaryList(const PropertyList& value, const std::string& owner,
                                                        const std::string& key);

}  // namespace qva
