#include "framework/Structure.h"

#include <algorithm>

namespace qva {

StructureRef Structure::makeArray(std::vector<Value> values) {
  auto structure = std::make_shared<Structure>();
  structure->members_.reserve(values.size());
  for (Value& value : values) {
    structure->members_.push_back({std::nullopt, std::move(value)});
  }
  return structure;
}

void Structure::append(Value value) {
  members_.push_back({std::nullopt, std::move(value)});
}

void Structure::set(const std::string& key, Value value) {
  auto found =
      std::find_if(members_.begin(), members_.end(), [&](const Member& member) { return member.key == key; });
  if (found != members_.end()) {
    found->value = std::move(value);
  } else {
    members_.push_back({key, std::move(value)});
  }
}

bool Structure::isArray() const {
  return std::none_of(members_.begin(), members_.end(), [](const Member& member) { return member.key; });
}

const Value* Structure::find(const std::string& key) const {
  for (const Member& member : members_) {
    if (member.key == key) {
      return &member.value;
    }
  }
  return nullptr;
}

}  // namespace qva
