#include "framework/QVAPlugIn.h"

#include "framework/QVAGreeter.h"

namespace qva {

namespace {
constexpr const char* kSavedVersionKey = "savedVersion";
}

QVAPlugIn::QVAPlugIn(const PatchClass& patchClass) : Patch(patchClass) {
  QVAGreeter::shared().showThanks();
}

std::vector<std::string> QVAPlugIn::plugInKeys(std::initializer_list<std::string> ownKeys) {
  std::vector<std::string> keys{kSavedVersionKey};
  keys.insert(keys.end(), ownKeys.begin(), ownKeys.end());
  return keys;
}

PropertyList QVAPlugIn::serializedValueForKey(const std::string& key) const {
  if (key == kSavedVersionKey) {
    return plugInVersion();
  }
  return Patch::serializedValueForKey(key);
}

void QVAPlugIn::setSerializedValueForKey(const PropertyList& value, const std::string& key) {
  if (key == kSavedVersionKey) {
    savedVersion_ = static_cast<std::uint32_t>(propertyListInteger(value));
  }
  Patch::setSerializedValueForKey(value, key);
}

}  // namespace qva
