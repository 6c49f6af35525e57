#pragma once

#include <filesystem>
#include <optional>

namespace qva {

// The folder of the data that ships with the running program (the fonts configuration, for one):
// share/qva beside the folder that holds the executable, where `cmake --install` puts it and where the
// build tree stages a copy. Nothing when the executable cannot be found or the folder is not there.
std::optional<std::filesystem::path> installedDataFolder();

}  // namespace qva
