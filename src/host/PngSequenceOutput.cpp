#include "host/PngSequenceOutput.h"

#include <cctype>
#include <cstdio>
#include <vector>

#include "foundation/image/PngWriter.h"

namespace qva {

bool PngSequenceOutput::isPattern(const std::string& pattern) {
  int conversions = 0;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] != '%') {
      continue;
    }
    std::size_t j = i + 1;
    while (j < pattern.size() && std::isdigit(static_cast<unsigned char>(pattern[j])) != 0 && j - i <= 2) {
      ++j;
    }
    if (j >= pattern.size() || pattern[j] != 'd') {
      return false;
    }
    ++conversions;
    i = j;
  }
  return conversions == 1;
}

std::string PngSequenceOutput::writeFrame(const PixelBufferView& frame) {
  std::vector<char> name(pattern_.size() + 32);
  // The pattern was checked to hold one integer conversion and nothing else to format.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::snprintf(name.data(), name.size(), pattern_.c_str(), static_cast<int>(index_));
#pragma GCC diagnostic pop
  ++index_;
  return PngWriter::write(frame, name.data());
}

}  // namespace qva
