#include "cli/PublishedInputAssignment.h"

#include "cli/CommandError.h"

namespace qva {

PublishedInputAssignment PublishedInputAssignment::parse(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0) {
    throw CommandError("--set takes NAME=VALUE, not \"" + text + "\"");
  }
  const std::string valueText = text.substr(equals + 1);
  PropertyList value = PropertyList::parse(valueText, nullptr, false);
  if (value.is_discarded()) {
    value = valueText;
  }
  return {text.substr(0, equals), value};
}

}  // namespace qva
