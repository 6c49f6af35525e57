#include "patches/subtitles/StringEncodingMenu.h"

#include <vector>

#include "foundation/encodings/StringEncodings.h"

namespace qva {

PortDescription StringEncodingMenu::port(const std::string& key) {
  const std::vector<std::string>& names = StringEncodings::localizedNames();
  return PortDescription::port(key, PortType::Index, "String Encoding")
      .withMaximum(names.empty() ? 0.0 : static_cast<double>(names.size() - 1))
      .withMenu(names);
}

std::optional<std::string> StringEncodingMenu::encodingForIndex(std::uint32_t index) {
  const std::vector<StringEncoding>& encodings = StringEncodings::available();
  if (index >= encodings.size()) {
    return std::nullopt;
  }
  return encodings[index].converterName;
}

std::uint32_t StringEncodingMenu::indexForEncoding(const std::string& encoding) {
  const std::optional<std::size_t> index = StringEncodings::indexOfName(encoding);
  return index ? static_cast<std::uint32_t>(*index) : 0xFFFFFFFFu;
}

}  // namespace qva
