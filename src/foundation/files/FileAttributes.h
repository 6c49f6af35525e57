#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace qva {

// What the file system records about an item: identity, type and access bits, owner, size and dates.
// Two reads compare equal when nothing about the item changed but its access time.
struct FileAttributes {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint32_t mode = 0;
  std::uint32_t linkCount = 0;
  std::uint32_t owner = 0;
  std::uint32_t group = 0;
  std::uint64_t size = 0;
  // Seconds and nanoseconds since the Unix epoch.
  std::int64_t modificationSeconds = 0;
  std::uint32_t modificationNanoseconds = 0;
  // The birth time, where the file system keeps one.
  std::optional<std::int64_t> birthSeconds;
  std::uint32_t birthNanoseconds = 0;

  // The attributes of the item at the path, of a final symbolic link itself unless followLinks; none
  // when nothing can be read there.
  static std::optional<FileAttributes> read(const std::string& path, bool followLinks = true);

  bool isDirectory() const;
  bool isSymbolicLink() const;

  bool operator==(const FileAttributes&) const = default;
};

}  // namespace qva
