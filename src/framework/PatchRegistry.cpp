#include "framework/PatchRegistry.h"

#include "framework/Patch.h"

namespace qva {

void PatchRegistry::add(const PatchClass& patchClass) {
  classes_[patchClass.className] = &patchClass;
}

const PatchClass* PatchRegistry::find(const std::string& className) const {
  auto found = classes_.find(className);
  return found != classes_.end() ? found->second : nullptr;
}

std::vector<const PatchClass*> PatchRegistry::classes() const {
  std::vector<const PatchClass*> all;
  all.reserve(classes_.size());
  for (const auto& entry : classes_) {
    all.push_back(entry.second);
  }
  return all;
}

std::unique_ptr<Patch> PatchRegistry::create(const std::string& className) const {
  const PatchClass* patchClass = find(className);
  return patchClass != nullptr ? patchClass->create() : nullptr;
}

}  // namespace qva
