#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "foundation/image/Bitmap.h"
#include "foundation/image/ImageDecoder.h"
#include "foundation/image/PngWriter.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

TEST(PngWriterTest, RoundTripKeepsPremultipliedPixels) {
  auto bitmap = Bitmap::allocate(3, 2, Bitmap::paddedRowBytes(3));
  ASSERT_TRUE(bitmap);
  // Premultiplied BGRA: opaque orange, half-transparent blue, transparent; a grey row.
  const std::uint8_t row0[12] = {0, 128, 255, 255, 128, 0, 0, 128, 0, 0, 0, 0};
  std::copy(row0, row0 + 12, bitmap->row(0));
  for (int x = 0; x < 3; ++x) {
    std::fill_n(bitmap->row(1) + x * 4, 4, std::uint8_t{200});
  }
  const TemporaryFolder folder("png");
  const auto path = (folder / "round.png").string();
  ASSERT_EQ(PngWriter::write(bitmap->view(), path), "");
  EXPECT_FALSE(std::filesystem::exists(path + ".partial"));
  const auto decoded = ImageDecoder::decodeFile(path);
  ASSERT_TRUE(decoded.bitmap) << decoded.error;
  for (int y = 0; y < 2; ++y) {
    for (int i = 0; i < 12; ++i) {
      EXPECT_NEAR(decoded.bitmap->row(y)[i], bitmap->row(y)[i], 1) << "row " << y << " byte " << i;
    }
  }
}

TEST(PngWriterTest, StraightAlphaOnDisk) {
  // Red at half coverage, opaque blue-green, empty, and light added where nothing was (alpha 0 with
  // colour, as additive blending leaves it): only partial coverage changes values.
  const std::uint8_t bgra[16] = {0, 0, 64, 128, 200, 100, 0, 255, 0, 0, 0, 0, 30, 20, 10, 0};
  std::uint8_t rgba[16];
  PngWriter::unpremultiplyRow(bgra, rgba, 4);
  EXPECT_EQ(std::vector<int>(rgba, rgba + 16),
            (std::vector<int>{128, 0, 0, 128, 0, 100, 200, 255, 0, 0, 0, 0, 10, 20, 30, 0}));
  std::uint8_t kept[16];
  PngWriter::unpremultiplyRow(bgra, kept, 4, PngWriter::ChannelOrder::BGRA);
  EXPECT_EQ(std::vector<int>(kept, kept + 16),
            (std::vector<int>{0, 0, 128, 128, 200, 100, 0, 255, 0, 0, 0, 0, 30, 20, 10, 0}));
  std::uint8_t alphaFirst[16];
  PngWriter::unpremultiplyRow(bgra, alphaFirst, 4, PngWriter::ChannelOrder::ARGB);
  EXPECT_EQ(std::vector<int>(alphaFirst, alphaFirst + 16),
            (std::vector<int>{128, 128, 0, 0, 255, 0, 100, 200, 0, 0, 0, 0, 0, 10, 20, 30}));
}

// Rows are converted several pixels at a time where the processor allows, with shortcuts for runs of
// one alpha; every value at every alpha, valid premultiplied or not, in runs or mixed, comes out exactly
// as it does pixel by pixel.
TEST(PngWriterTest, WholeRowsMatchSinglePixels) {
  std::vector<std::uint8_t> runs(256 * 256 * 4);
  std::vector<std::uint8_t> mixed(runs.size());
  for (int alpha = 0; alpha < 256; ++alpha) {
    for (int value = 0; value < 256; ++value) {
      const int index = alpha * 256 + value;
      for (std::uint8_t* p : {runs.data() + index * 4, mixed.data() + index * 4}) {
        p[0] = static_cast<std::uint8_t>(value);
        p[1] = static_cast<std::uint8_t>(255 - value);
        p[2] = static_cast<std::uint8_t>(value ^ 0x5a);
      }
      runs[index * 4 + 3] = static_cast<std::uint8_t>(alpha);
      // Every alpha with every value once more, in a different order.
      mixed[index * 4 + 3] = static_cast<std::uint8_t>(alpha + value * 113);
    }
  }
  for (const auto& bgra : {runs, mixed}) {
    for (const auto order :
         {PngWriter::ChannelOrder::RGBA, PngWriter::ChannelOrder::BGRA, PngWriter::ChannelOrder::ARGB}) {
      std::vector<std::uint8_t> whole(bgra.size());
      std::vector<std::uint8_t> single(bgra.size());
      // An odd width leaves a remainder after any grouping.
      PngWriter::unpremultiplyRow(bgra.data(), whole.data(), 256 * 256 - 1, order);
      for (std::size_t i = 0; i + 4 < bgra.size(); i += 4) {
        PngWriter::unpremultiplyRow(bgra.data() + i, single.data() + i, 1, order);
      }
      EXPECT_EQ(whole, single) << static_cast<int>(order);
    }
  }
}

TEST(PngWriterTest, FailuresLeaveNoFile) {
  auto bitmap = Bitmap::allocate(2, 2, Bitmap::paddedRowBytes(2));
  ASSERT_TRUE(bitmap);
  const std::string unwritable = "/nonexistent-folder/qva/out.png";
  const std::string error = PngWriter::write(bitmap->view(), unwritable);
  EXPECT_NE(error.find("/nonexistent-folder/qva/out.png"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(unwritable));
  const TemporaryFolder folder("png");
  const auto path = (folder / "empty.png").string();
  EXPECT_NE(PngWriter::write(PixelBufferView{}, path), "");
  EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
}  // namespace qva
