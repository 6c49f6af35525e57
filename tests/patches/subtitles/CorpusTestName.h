#pragma once

#include <algorithm>
#include <cctype>
#include <string>

namespace qva {

// A corpus file's name as a test name: every character that is not a letter or digit becomes "_".
inline std::string corpusTestName(std::string fileName) {
  std::replace_if(
      fileName.begin(), fileName.end(), [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); },
      '_');
  return fileName;
}

}  // namespace qva
