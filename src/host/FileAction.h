#pragma once

#include <optional>
#include <string>
#include <vector>

#include "framework/PropertyList.h"

namespace qva {

// A change to the file system between frames, for patches that watch or poll files: write, append,
// touch, remove, rename, mkdir or symlink. Relative paths are taken from the given folder.
// A script is played by whoever runs it, so the host confines the changes to folders it names.
class FileAction {
 public:
  // Throws std::invalid_argument for an unknown action or missing field.
  FileAction(const PropertyList& step, const std::string& folder);
  // Why the action may not be carried out: a path it changes (after symbolic links) lies outside every
  // one of the folders, or is one of them. Empty when it may.
  std::string refusal(const std::vector<std::string>& folders) const;
  // Carries the action out; answers whether it succeeded.
  bool apply() const;

 private:
  std::string action_;
  std::string path_;
  std::string target_;
  std::string bytes_;
  std::optional<long long> modificationTime_;
};

}  // namespace qva
