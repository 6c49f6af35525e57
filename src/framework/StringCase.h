#pragma once

#include <string>
#include <string_view>

namespace qva {

// The text with its ASCII letters in lower case, as protocols and file formats compare their names.
std::string asciiLowercased(std::string_view text);

}  // namespace qva
