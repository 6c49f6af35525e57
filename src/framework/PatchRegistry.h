#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "framework/PatchClass.h"

namespace qva {

// The patch classes a host offers, by class name.
class PatchRegistry {
 public:
  // Registers a class; a second class with the same name replaces the first.
  void add(const PatchClass& patchClass);
  const PatchClass* find(const std::string& className) const;
  // Every class, ordered by class name.
  std::vector<const PatchClass*> classes() const;
  // A new instance of the class, or nullptr for an unknown name.
  std::unique_ptr<Patch> create(const std::string& className) const;

 private:
  std::map<std::string, const PatchClass*> classes_;
};

}  // namespace qva
