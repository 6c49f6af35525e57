#include "foundation/files/InstalledData.h"

#include <system_error>

namespace qva {

std::optional<std::filesystem::path> installedDataFolder() {
  std::error_code error;
  // The executable itself, whatever link or working folder it was started through.
  const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) {
    return std::nullopt;
  }
  std::filesystem::path folder = executable.parent_path().parent_path() / "share" / "qva";
  if (!std::filesystem::is_directory(folder, error)) {
    return std::nullopt;
  }
  return folder;
}

}  // namespace qva
