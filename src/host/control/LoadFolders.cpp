#include "host/control/LoadFolders.h"

#include <algorithm>
#include <system_error>

#include "host/control/ControlRequestError.h"

namespace qva {

LoadFolders::LoadFolders(const std::vector<std::filesystem::path>& folders) {
  for (const std::filesystem::path& folder : folders) {
    std::error_code error;
    std::filesystem::path canonical = std::filesystem::canonical(folder, error);
    if (!error && std::filesystem::is_directory(canonical, error)) {
      folders_.push_back(std::move(canonical));
    }
  }
}

bool LoadFolders::contains(const std::filesystem::path& canonical) const {
  return std::any_of(folders_.begin(), folders_.end(), [&](const std::filesystem::path& folder) {
    // Whole components: /shows/a does not contain /shows/ab.
    const auto [inFolder, inFile] =
        std::mismatch(folder.begin(), folder.end(), canonical.begin(), canonical.end());
    return inFolder == folder.end() && inFile != canonical.end();
  });
}

std::filesystem::path LoadFolders::resolve(const std::string& requested) const {
  if (folders_.empty()) {
    throw ControlRequestError(403, "loading compositions is off: the playout names no folder to load from");
  }
  if (requested.empty() || requested.find('\0') != std::string::npos) {
    throw ControlRequestError(400, "the path of the composition to load is missing");
  }
  const std::filesystem::path path(requested);
  std::vector<std::filesystem::path> candidates;
  if (path.is_absolute()) {
    candidates.push_back(path);
  } else {
    for (const std::filesystem::path& folder : folders_) {
      candidates.push_back(folder / path);
    }
  }
  for (const std::filesystem::path& candidate : candidates) {
    std::error_code error;
    const std::filesystem::path canonical = std::filesystem::canonical(candidate, error);
    if (error) {
      continue;
    }
    if (!contains(canonical)) {
      throw ControlRequestError(
          403, "\"" + requested + "\" is outside the folders compositions may be loaded from");
    }
    if (!std::filesystem::is_regular_file(canonical, error)) {
      throw ControlRequestError(400, "\"" + requested + "\" is not a file");
    }
    return canonical;
  }
  throw ControlRequestError(404, "there is no file \"" + requested + "\" to load");
}

}  // namespace qva
