#include "foundation/psd/PackBits.h"

#include <algorithm>
#include <cstring>

namespace qva {

bool unpackBits(std::span<const std::uint8_t> packed, std::span<std::uint8_t> row) {
  std::size_t in = 0;
  std::size_t out = 0;
  while (out < row.size()) {
    if (in >= packed.size()) {
      return false;
    }
    const auto header = static_cast<std::int8_t>(packed[in++]);
    if (header >= 0) {
      const auto count = static_cast<std::size_t>(header) + 1;
      if (count > packed.size() - in || count > row.size() - out) {
        return false;
      }
      std::memcpy(row.data() + out, packed.data() + in, count);
      in += count;
      out += count;
    } else if (header != -128) {
      const auto count = static_cast<std::size_t>(1 - header);
      if (in >= packed.size() || count > row.size() - out) {
        return false;
      }
      std::memset(row.data() + out, packed[in++], count);
      out += count;
    }
  }
  return true;
}

std::size_t minimumPackedBytes(std::size_t rowBytes) {
  return (rowBytes + 127) / 128 * 2;
}

}  // namespace qva
