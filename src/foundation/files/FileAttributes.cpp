#include "foundation/files/FileAttributes.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace qva {

std::optional<FileAttributes> FileAttributes::read(const std::string& path, bool followLinks) {
  struct statx info {};
  const int flags = AT_STATX_SYNC_AS_STAT | (followLinks ? 0 : AT_SYMLINK_NOFOLLOW);
  if (path.empty() || ::statx(AT_FDCWD, path.c_str(), flags, STATX_BASIC_STATS | STATX_BTIME, &info) != 0) {
    return std::nullopt;
  }
  FileAttributes attributes;
  attributes.device = (static_cast<std::uint64_t>(info.stx_dev_major) << 32) | info.stx_dev_minor;
  attributes.inode = info.stx_ino;
  attributes.mode = info.stx_mode;
  attributes.linkCount = info.stx_nlink;
  attributes.owner = info.stx_uid;
  attributes.group = info.stx_gid;
  attributes.size = info.stx_size;
  attributes.modificationSeconds = info.stx_mtime.tv_sec;
  attributes.modificationNanoseconds = info.stx_mtime.tv_nsec;
  if ((info.stx_mask & STATX_BTIME) != 0) {
    attributes.birthSeconds = info.stx_btime.tv_sec;
    attributes.birthNanoseconds = info.stx_btime.tv_nsec;
  }
  return attributes;
}

bool FileAttributes::isDirectory() const {
  return S_ISDIR(mode);
}

bool FileAttributes::isSymbolicLink() const {
  return S_ISLNK(mode);
}

}  // namespace qva
