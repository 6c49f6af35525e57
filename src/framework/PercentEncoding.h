#pragma once

#include <string>
#include <string_view>

namespace qva {

// Escapes every byte outside the unreserved URL characters and those in keep as %XX (upper-case hex).
std::string percentEncode(std::string_view text, std::string_view keep = "");
// Replaces each %XX escape with its byte; malformed escapes stay as they are.
std::string percentDecode(std::string_view text);

}  // namespace qva
