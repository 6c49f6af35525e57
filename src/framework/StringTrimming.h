#pragma once

#include <string>
#include <string_view>

namespace qva {

// The text without any of the characters at its start and end.
std::string trimmed(std::string_view text, std::string_view characters);

}  // namespace qva
