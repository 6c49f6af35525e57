#pragma once

#include <string>

namespace qva {

// A leading "~" or "~user" replaced by that account's home folder (from the account database); other
// paths, and those of unknown accounts, as they are.
std::string expandingTildeInPath(const std::string& path);

}  // namespace qva
