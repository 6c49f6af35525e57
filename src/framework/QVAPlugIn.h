#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "framework/Patch.h"

namespace qva {

// The common base of the maker's patches: the version stamp saved under "savedVersion", forceRendering,
// and the greeting at the first creation in the editor.
class QVAPlugIn : public Patch {
 public:
  explicit QVAPlugIn(const PatchClass& patchClass);

  static int plugInVersion() { return 0; }
  // Spelled so on purpose: compositions and hosts know the operation by this name.
  static int minumumPlugInVersion() { return 0; }
  // {"savedVersion"} followed by the subclass's own keys.
  static std::vector<std::string> plugInKeys(std::initializer_list<std::string> ownKeys = {});

  PropertyList serializedValueForKey(const std::string& key) const override;
  void setSerializedValueForKey(const PropertyList& value, const std::string& key) override;

  void forceRendering() const { requestRendering(); }
  std::uint32_t savedVersion() const { return savedVersion_; }
  void setSavedVersion(std::uint32_t version) { savedVersion_ = version; }

 private:
  // Recorded for future format migrations; nothing reads it yet.
  std::uint32_t savedVersion_ = 0;
};

}  // namespace qva
