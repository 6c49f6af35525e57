#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace qva::GpioLineMap {

// How a GPIO chip stands in for a GPI box: lines 0 to 15 are the sixteen inputs (line n is bit n of the
// input word) and lines 16 to 23 the eight outputs (line 16 + n follows bit n of the output word).
constexpr unsigned kInputCount = 16;
constexpr unsigned kOutputCount = 8;
constexpr unsigned kFirstOutputLine = kInputCount;
constexpr unsigned kLinesNeeded = kInputCount + kOutputCount;

constexpr std::array<unsigned, kInputCount> inputLines() {
  std::array<unsigned, kInputCount> lines{};
  for (unsigned n = 0; n < kInputCount; ++n) {
    lines[n] = n;
  }
  return lines;
}

constexpr std::array<unsigned, kOutputCount> outputLines() {
  std::array<unsigned, kOutputCount> lines{};
  for (unsigned n = 0; n < kOutputCount; ++n) {
    lines[n] = kFirstOutputLine + n;
  }
  return lines;
}

// Whether a chip with this many lines can serve as a box.
constexpr bool chipFits(unsigned lineCount) {
  return lineCount >= kLinesNeeded;
}

// The input word from the levels of the input lines (any non-zero level is active); lines past the
// sixteenth are ignored, missing ones read as inactive.
std::uint16_t inputWord(std::span<const int> inputLevels);

// The levels of the eight output lines for an output word; bits 8 to 15 have no line.
std::array<int, kOutputCount> outputLevels(std::uint16_t outputWord);

}  // namespace qva::GpioLineMap
