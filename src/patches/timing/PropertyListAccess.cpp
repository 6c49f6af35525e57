#include "patches/timing/PropertyListAccess.h"

#include "framework/ProcessLog.h"

namespace qva {

const PropertyList& dictionaryEntry(const PropertyList& dictionary, const char* key) {
  static const PropertyList none;
  if (!dictionary.is_object()) {
    return none;
  }
  auto found = dictionary.find(key);
  return found != dictionary.end() ? *found : none;
}

std::optional<std::vector<PropertyList>> dictionaryList(const PropertyList& value, const std::string& owner,
                                                        const std::string& key) {
  if (!value.is_array()) {
    ProcessLog::write("[" + owner + "] ignored the setting \"" + key + "\": it is not a list");
    return std::nullopt;
  }
  std::vector<PropertyList> dictionaries;
  for (const PropertyList& entry : value) {
    if (entry.is_object()) {
      dictionaries.push_back(entry);
    } else {
      ProcessLog::write("[" + owner + "] skipped an entry of the setting \"" + key +
                        "\" that is not a dictionary");
    }
  }
  return dictionaries;
}

}  // namespace qva
