#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "foundation/image/Bitmap.h"

namespace qva {
namespace {

TEST(BitmapTest, RowLengthRules) {
  // The padded rule adds 16 bytes even when 4 × width is a multiple of 16.
  EXPECT_EQ(Bitmap::paddedRowBytes(0), 16u);
  EXPECT_EQ(Bitmap::paddedRowBytes(1), 16u);
  EXPECT_EQ(Bitmap::paddedRowBytes(4), 32u);
  EXPECT_EQ(Bitmap::paddedRowBytes(5), 32u);
  EXPECT_EQ(Bitmap::paddedRowBytes(200), 816u);
  // The aligned rule pads only when needed.
  EXPECT_EQ(Bitmap::alignedRowBytes(1000), 4000u);
  EXPECT_EQ(Bitmap::alignedRowBytes(1001), 4016u);
  EXPECT_EQ(Bitmap::alignedRowBytes(1), 16u);
}

TEST(BitmapTest, AllocationIsZeroedAndPageAligned) {
  auto bitmap = Bitmap::allocate(5, 3, Bitmap::paddedRowBytes(5));
  ASSERT_TRUE(bitmap);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(bitmap->bytes()) % 4096, 0u);
  for (std::size_t i = 0; i < bitmap->rowBytes() * 3; ++i) {
    ASSERT_EQ(bitmap->bytes()[i], 0);
  }
}

TEST(BitmapTest, RefusesImpossibleSizes) {
  EXPECT_FALSE(Bitmap::allocate(-1, 3, 16));
  EXPECT_FALSE(Bitmap::allocate(8, 3, 16));  // rows shorter than the pixels
  EXPECT_FALSE(Bitmap::allocate(100000, 100000, Bitmap::paddedRowBytes(100000)));
  auto empty = Bitmap::allocate(0, 7, Bitmap::paddedRowBytes(0));
  ASSERT_TRUE(empty);
  EXPECT_NE(empty->bytes(), nullptr);
}

TEST(BitmapTest, PremultiplyAndConvertFromRgba) {
  auto bitmap = Bitmap::allocate(2, 1, 16);
  ASSERT_TRUE(bitmap);
  const std::uint8_t pixels[8] = {200, 100, 50, 128, 10, 20, 30, 255};
  std::copy(pixels, pixels + 8, bitmap->bytes());
  bitmap->premultiply();
  EXPECT_EQ(bitmap->bytes()[0], 100);
  EXPECT_EQ(bitmap->bytes()[1], 50);
  EXPECT_EQ(bitmap->bytes()[2], 25);
  EXPECT_EQ(bitmap->bytes()[3], 128);
  EXPECT_EQ(bitmap->bytes()[4], 10);
  bitmap->convertPremultipliedRgba();
  EXPECT_EQ(bitmap->bytes()[0], 25);
  EXPECT_EQ(bitmap->bytes()[2], 100);
  EXPECT_EQ(bitmap->bytes()[6], 10);
  // Colour above alpha is not premultiplied colour: it is limited to the alpha.
  const std::uint8_t damaged[8] = {90, 20, 255, 64, 0, 0, 0, 0};
  std::copy(damaged, damaged + 8, bitmap->bytes());
  bitmap->convertPremultipliedRgba();
  EXPECT_THAT(std::vector<std::uint8_t>(bitmap->bytes(), bitmap->bytes() + 8),
              ::testing::ElementsAre(64, 20, 64, 64, 0, 0, 0, 0));
}

TEST(BitmapTest, VisibleRowsHoldEveryPixelWithAnyNonZeroByte) {
  auto bitmap = Bitmap::allocate(3, 6, Bitmap::paddedRowBytes(3));
  ASSERT_TRUE(bitmap);
  EXPECT_TRUE(bitmap->visibleRows().empty());
  // Bytes past the pixels of a row are padding, not ink.
  bitmap->row(1)[12] = 255;
  EXPECT_TRUE(bitmap->visibleRows().empty());
  // A colour byte alone counts, as does the last byte of a row.
  bitmap->row(2)[0] = 1;
  EXPECT_EQ(bitmap->visibleRows(), (Bitmap::Rows{2, 3}));
  bitmap->row(4)[11] = 7;
  EXPECT_EQ(bitmap->visibleRows(), (Bitmap::Rows{2, 5}));
  bitmap->row(0)[5] = 9;
  bitmap->row(5)[3] = 9;
  EXPECT_EQ(bitmap->visibleRows(), (Bitmap::Rows{0, 6}));
}

TEST(BitmapTest, ImageOwnsTheMemory) {
  auto bitmap = Bitmap::allocate(3, 2, Bitmap::paddedRowBytes(3));
  ASSERT_TRUE(bitmap);
  bitmap->row(1)[0] = 42;
  ImageRef image = std::move(*bitmap).toImage();
  EXPECT_EQ(bitmap->bytes(), nullptr);
  auto pixels = image->pixelBuffer();
  ASSERT_TRUE(pixels);
  EXPECT_EQ(pixels->width, 3);
  EXPECT_EQ(pixels->height, 2);
  EXPECT_EQ(pixels->rowBytes, 16u);
  EXPECT_EQ(pixels->bytes[16], 42);
}

}  // namespace
}  // namespace qva
