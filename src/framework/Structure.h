#pragma once

#include <optional>
#include <string>
#include <vector>

#include "framework/Value.h"

namespace qva {

// The host's structure: an ordered collection of values, either an array (members without keys) or a
// keyed collection that keeps its insertion order. Immutable once shared through a Value.
class Structure {
 public:
  struct Member {
    std::optional<std::string> key;
    Value value;

    bool operator==(const Member&) const = default;
  };

  Structure() = default;

  static StructureRef makeArray(std::vector<Value> values);

  // Appends to an array.
  void append(Value value);
  // Sets a keyed member: replaces the member with that key in place, or appends a new one.
  void set(const std::string& key, Value value);

  bool isArray() const;
  std::size_t size() const { return members_.size(); }
  bool empty() const { return members_.empty(); }
  const std::vector<Member>& members() const { return members_; }
  const Value& at(std::size_t index) const { return members_.at(index).value; }
  // The member with that key, or nullptr.
  const Value* find(const std::string& key) const;

  bool operator==(const Structure&) const = default;

 private:
  std::vector<Member> members_;
};

}  // namespace qva
