#include "foundation/gpi/GpioLineMap.h"

#include <algorithm>

namespace qva::GpioLineMap {

std::uint16_t inputWord(std::span<const int> inputLevels) {
  std::uint16_t word = 0;
  const std::size_t count = std::min<std::size_t>(inputLevels.size(), kInputCount);
  for (std::size_t n = 0; n < count; ++n) {
    if (inputLevels[n] != 0) {
      word = static_cast<std::uint16_t>(word | (1u << n));
    }
  }
  return word;
}

std::array<int, kOutputCount> outputLevels(std::uint16_t outputWord) {
  std::array<int, kOutputCount> levels{};
  for (unsigned n = 0; n < kOutputCount; ++n) {
    levels[n] = (outputWord >> n) & 1u;
  }
  return levels;
}

}  // namespace qva::GpioLineMap
