#include <gtest/gtest.h>

#include <vector>

#include "foundation/psd/PackBits.h"

namespace qva {
namespace {

std::vector<std::uint8_t> unpack(const std::vector<std::uint8_t>& packed, std::size_t rowBytes, bool* ok) {
  std::vector<std::uint8_t> row(rowBytes, 0xEE);
  *ok = unpackBits(packed, row);
  return row;
}

TEST(PackBitsTest, ExpandsLiteralsRepeatsAndSkipsTheNoOpHeader) {
  bool ok = false;
  // Two literals, -128 (nothing), a run of three 7s, then bytes past the full row that are ignored.
  const auto row = unpack({0x01, 0x0A, 0x0B, 0x80, 0xFE, 0x07, 0x00, 0x99}, 5, &ok);
  EXPECT_TRUE(ok);
  EXPECT_EQ(row, (std::vector<std::uint8_t>{0x0A, 0x0B, 0x07, 0x07, 0x07}));
  EXPECT_TRUE(unpack({0x81, 0x42}, 128, &ok) == std::vector<std::uint8_t>(128, 0x42));
  EXPECT_TRUE(ok);
}

TEST(PackBitsTest, RefusesRunsPastTheRowAndRowsLeftShort) {
  bool ok = true;
  unpack({0xFD, 0x01}, 2, &ok);  // a run of four into two bytes
  EXPECT_FALSE(ok);
  unpack({0x03, 0x01, 0x02}, 4, &ok);  // a literal of four with two bytes left
  EXPECT_FALSE(ok);
  unpack({0x00, 0x01}, 3, &ok);  // the packed bytes end before the row is full
  EXPECT_FALSE(ok);
  unpack({0xFF}, 2, &ok);  // a run without its byte
  EXPECT_FALSE(ok);
  unpack({}, 0, &ok);
  EXPECT_TRUE(ok);
}

TEST(PackBitsTest, MinimumPackedBytesAllowsRunsOf128) {
  EXPECT_EQ(minimumPackedBytes(0), 0u);
  EXPECT_EQ(minimumPackedBytes(1), 2u);
  EXPECT_EQ(minimumPackedBytes(128), 2u);
  EXPECT_EQ(minimumPackedBytes(129), 4u);
}

}  // namespace
}  // namespace qva
