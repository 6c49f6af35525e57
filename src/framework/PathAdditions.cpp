#include "framework/PathAdditions.h"

#include <filesystem>
#include <vector>

namespace qva {

namespace {

std::string_view withoutTrailingSeparators(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') {
    path.remove_suffix(1);
  }
  return path;
}

std::vector<std::string_view> splitAtSeparators(std::string_view path) {
  std::vector<std::string_view> components;
  std::size_t start = 0;
  for (std::size_t separator = path.find('/'); separator != std::string_view::npos;
       separator = path.find('/', start)) {
    components.push_back(path.substr(start, separator - start));
    start = separator + 1;
  }
  components.push_back(path.substr(start));
  return components;
}

}  // namespace

std::string pathResolvedAgainst(const std::string& path, const std::string& folder) {
  if (path.empty() || path.front() == '/') {
    return path;
  }
  return (std::filesystem::path(folder) / path).string();
}

std::string lastPathComponent(std::string_view path) {
  path = withoutTrailingSeparators(path);
  if (path == "/") {
    return "/";
  }
  const std::size_t separator = path.rfind('/');
  return std::string(separator == std::string_view::npos ? path : path.substr(separator + 1));
}

std::string deletingLastPathComponent(std::string_view path) {
  path = withoutTrailingSeparators(path);
  const std::size_t separator = path.rfind('/');
  if (separator == std::string_view::npos) {
    return "";
  }
  if (separator == 0) {
    return "/";
  }
  return std::string(withoutTrailingSeparators(path.substr(0, separator)));
}

bool lastPathComponentIsFilename(std::string_view path) {
  return lastPathComponent(path).find('.') != std::string::npos;
}

std::string relativePathToPath(std::string_view path, std::string_view base) {
  std::string target(path);
  std::string fileName;
  if (lastPathComponentIsFilename(target)) {
    fileName = lastPathComponent(target);
    target = deletingLastPathComponent(target);
  }
  std::string folder(base);
  if (lastPathComponentIsFilename(folder)) {
    folder = deletingLastPathComponent(folder);
  }
  const std::vector<std::string_view> targetComponents = splitAtSeparators(target);
  const std::vector<std::string_view> baseComponents = splitAtSeparators(folder);
  std::size_t common = 0;
  while (common < targetComponents.size() && common < baseComponents.size() &&
         targetComponents[common] == baseComponents[common]) {
    ++common;
  }
  std::string relative;
  for (std::size_t i = common; i < baseComponents.size(); ++i) {
    relative += "../";
  }
  for (std::size_t i = common; i < targetComponents.size(); ++i) {
    relative.append(targetComponents[i]).push_back('/');
  }
  return relative + fileName;
}

}  // namespace qva
