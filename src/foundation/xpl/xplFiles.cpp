#include "foundation/xpl/xplFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace qva {

bool xpl_read_file(const std::string& path, std::string& bytes) {
  bytes.clear();
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return false;
  }
  struct stat info {};
  if (::fstat(fd, &info) != 0 || S_ISDIR(info.st_mode)) {
    ::close(fd);
    return false;
  }
  // The size is only a hint: the file may grow or shrink while it is read.
  if (S_ISREG(info.st_mode) && info.st_size > 0) {
    bytes.reserve(static_cast<std::size_t>(info.st_size));
  }
  char chunk[65536];
  for (;;) {
    const ssize_t count = ::read(fd, chunk, sizeof chunk);
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      ::close(fd);
      bytes.clear();
      return false;
    }
    if (count == 0) {
      break;
    }
    bytes.append(chunk, static_cast<std::size_t>(count));
  }
  ::close(fd);
  return true;
}

}  // namespace qva
