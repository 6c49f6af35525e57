#pragma once

#include <string>

#include "framework/PropertyList.h"

namespace qva {

// A change to the file system between frames, for patches that watch or poll files: write, append,
// touch, remove, rename, mkdir or symlink. Relative paths are taken from the given folder.
class FileAction {
 public:
  // Throws std::invalid_argument for an unknown action or missing field.
  FileAction(const PropertyList& step, const std::string& folder);
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
