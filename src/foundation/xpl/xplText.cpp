#include "foundation/xpl/xplText.h"

namespace qva {

namespace {

// ASCII only: the scripts are raw bytes in any encoding, and bytes above 127 must compare exactly.
unsigned char lowerAscii(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte + ('a' - 'A')) : byte;
}

}  // namespace

int xplText_strnicmp(const char* first, const char* second, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned char a = lowerAscii(first[i]);
    const unsigned char b = lowerAscii(second[i]);
    if (a != b) {
      return a < b ? -1 : 1;
    }
    if (a == 0) {
      return 0;
    }
  }
  return 0;
}

}  // namespace qva
