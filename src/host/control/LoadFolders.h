#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace qva {

// The folders a control client may load compositions from. A requested file counts as inside one only
// by its canonical path: "..", symbolic links and doubled separators cannot lead out of them.
class LoadFolders {
 public:
  // Folders that do not exist are left out.
  explicit LoadFolders(const std::vector<std::filesystem::path>& folders);

  bool empty() const { return folders_.empty(); }
  // The canonical path of the file requested: an absolute path as it is, a relative one in the first
  // folder that has it. Throws ControlRequestError: 403 when loading is off or the file lies outside the
  // folders, 404 when there is no such file, 400 for an empty path.
  std::filesystem::path resolve(const std::string& requested) const;

 private:
  bool contains(const std::filesystem::path& canonical) const;

  std::vector<std::filesystem::path> folders_;
};

}  // namespace qva
