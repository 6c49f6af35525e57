#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "framework/PortAttributes.h"

namespace qva {

// The "String Encoding" input the subtitle patches share: a menu of the encodings' localized names,
// the index selecting the encoding at that position.
class StringEncodingMenu {
 public:
  // The input port under the key, titled "String Encoding", with the menu and its maximum.
  static PortDescription port(const std::string& key);
  // The ICU converter name of the encoding at that position, or none past the end of the menu.
  static std::optional<std::string> encodingForIndex(std::uint32_t index);
  // The position of the encoding, named by its localized name or any converter alias; all bits set
  // when it is not offered.
  static std::uint32_t indexForEncoding(const std::string& encoding);
};

}  // namespace qva
