#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qva {

// Standard base64 with padding, as scripts carry bytes.
std::string encodeBase64(std::string_view bytes);
// None for text that is not valid padded base64.
std::optional<std::string> decodeBase64(std::string_view text);

}  // namespace qva
