#include "foundation/files/TildeExpansion.h"

#include <pwd.h>
#include <unistd.h>

#include <vector>

namespace qva {

std::string expandingTildeInPath(const std::string& path) {
  if (path.empty() || path.front() != '~') {
    return path;
  }
  const std::size_t slash = path.find('/');
  const std::string user = path.substr(1, slash == std::string::npos ? std::string::npos : slash - 1);
  const long bufferSize = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(bufferSize > 0 ? static_cast<std::size_t>(bufferSize) : 16384);
  passwd entry{};
  passwd* found = nullptr;
  const int result = user.empty() ? ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found)
                                  : ::getpwnam_r(user.c_str(), &entry, buffer.data(), buffer.size(), &found);
  if (result != 0 || found == nullptr || found->pw_dir == nullptr) {
    return path;
  }
  const std::string home = found->pw_dir;
  return slash == std::string::npos ? home : home + path.substr(slash);
}

}  // namespace qva
