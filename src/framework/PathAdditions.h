#pragma once

#include <string>
#include <string_view>

namespace qva {

// The last component of a path, trailing separators ignored ("/a/b/" gives "b", "/" gives "/").
std::string lastPathComponent(std::string_view path);
// The path without its last component ("/a/b" gives "/a", "/a" gives "/", "a" gives "").
std::string deletingLastPathComponent(std::string_view path);
// The path as it is when it is absolute (or empty), else taken from the folder.
std::string pathResolvedAgainst(const std::string& path, const std::string& folder);
// True when the last path component contains a "." anywhere (so a folder "v1.2" counts as a file name).
bool lastPathComponentIsFilename(std::string_view path);
// The relative path that leads from the folder base to path ("/a/b/c/file.psd" from "/a/b/x/doc.qtz" is
// "../c/file.psd"). A file name at the end of base is dropped; a trailing "/" on base adds a step up.
std::string relativePathToPath(std::string_view path, std::string_view base);

}  // namespace qva
