#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace qva {

// A folder of one test's own below the system's temporary folder, removed with its contents at the end.
class TemporaryFolder {
 public:
  explicit TemporaryFolder(const std::string& name)
      : path_(std::filesystem::temp_directory_path() / ("qva-" + name + "-" + std::to_string(::getpid()))) {
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::filesystem::path& relative) const { return path_ / relative; }

 private:
  std::filesystem::path path_;
};

}  // namespace qva
