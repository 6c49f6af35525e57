#include <gtest/gtest.h>

#include <vector>

#include "foundation/gpi/GpioLineMap.h"

namespace qva {
namespace {

TEST(GpioLineMap, InputLinesMakeTheInputWordBitByBit) {
  std::vector<int> levels(GpioLineMap::kInputCount, 0);
  EXPECT_EQ(GpioLineMap::inputWord(levels), 0);
  levels[0] = 1;
  levels[2] = 1;
  levels[8] = 1;
  EXPECT_EQ(GpioLineMap::inputWord(levels), 0x0105);
  levels[15] = 7;
  EXPECT_EQ(GpioLineMap::inputWord(levels), 0x8105) << "any non-zero level is active";
  levels.push_back(1);
  EXPECT_EQ(GpioLineMap::inputWord(levels), 0x8105) << "lines past the sixteenth are not inputs";
  EXPECT_EQ(GpioLineMap::inputWord(std::vector<int>{1, 1}), 0x0003);
}

TEST(GpioLineMap, OutputLinesFollowTheLowEightBitsOnLinesAfterTheInputs) {
  const auto levels = GpioLineMap::outputLevels(0xff85);
  EXPECT_EQ(std::vector<int>(levels.begin(), levels.end()), (std::vector<int>{1, 0, 1, 0, 0, 0, 0, 1}));
  EXPECT_EQ(GpioLineMap::outputLines().front(), 16u);
  EXPECT_EQ(GpioLineMap::outputLines().back(), 23u);
  EXPECT_EQ(GpioLineMap::inputLines().back(), 15u);
  EXPECT_FALSE(GpioLineMap::chipFits(16));
  EXPECT_TRUE(GpioLineMap::chipFits(24));
}

}  // namespace
}  // namespace qva
