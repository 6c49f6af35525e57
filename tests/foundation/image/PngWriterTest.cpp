#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "foundation/image/Bitmap.h"
#include "foundation/image/ImageDecoder.h"
#include "foundation/image/PngWriter.h"

namespace qva {
namespace {

std::filesystem::path scratchFolder() {
  auto folder = std::filesystem::temp_directory_path() / ("qva-png-" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  return folder;
}

TEST(PngWriterTest, RoundTripKeepsPremultipliedPixels) {
  auto bitmap = Bitmap::allocate(3, 2, Bitmap::paddedRowBytes(3));
  ASSERT_TRUE(bitmap);
  // Premultiplied BGRA: opaque orange, half-transparent blue, transparent; a grey row.
  const std::uint8_t row0[12] = {0, 128, 255, 255, 128, 0, 0, 128, 0, 0, 0, 0};
  std::copy(row0, row0 + 12, bitmap->row(0));
  for (int x = 0; x < 3; ++x) {
    std::fill_n(bitmap->row(1) + x * 4, 4, std::uint8_t{200});
  }
  const auto path = (scratchFolder() / "round.png").string();
  ASSERT_EQ(PngWriter::write(bitmap->view(), path), "");
  EXPECT_FALSE(std::filesystem::exists(path + ".partial"));
  const auto decoded = ImageDecoder::decodeFile(path);
  ASSERT_TRUE(decoded.bitmap) << decoded.error;
  for (int y = 0; y < 2; ++y) {
    for (int i = 0; i < 12; ++i) {
      EXPECT_NEAR(decoded.bitmap->row(y)[i], bitmap->row(y)[i], 1) << "row " << y << " byte " << i;
    }
  }
  std::filesystem::remove_all(scratchFolder());
}

TEST(PngWriterTest, StraightAlphaOnDisk) {
  std::uint8_t rgba[4];
  const std::uint8_t bgra[4] = {0, 0, 64, 128};  // red at half coverage
  PngWriter::unpremultiplyRow(bgra, rgba, 1);
  EXPECT_EQ(rgba[0], 128);
  EXPECT_EQ(rgba[1], 0);
  EXPECT_EQ(rgba[2], 0);
  EXPECT_EQ(rgba[3], 128);
}

TEST(PngWriterTest, FailuresLeaveNoFile) {
  auto bitmap = Bitmap::allocate(2, 2, Bitmap::paddedRowBytes(2));
  ASSERT_TRUE(bitmap);
  const std::string unwritable = "/nonexistent-folder/qva/out.png";
  const std::string error = PngWriter::write(bitmap->view(), unwritable);
  EXPECT_NE(error.find("/nonexistent-folder/qva/out.png"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(unwritable));
  const auto path = (scratchFolder() / "empty.png").string();
  EXPECT_NE(PngWriter::write(PixelBufferView{}, path), "");
  EXPECT_FALSE(std::filesystem::exists(path));
  std::filesystem::remove_all(scratchFolder());
}

}  // namespace
}  // namespace qva
