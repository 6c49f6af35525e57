#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "foundation/image/ImageDecoder.h"

namespace qva {
namespace {

using Pixel = std::array<int, 4>;  // B, G, R, A premultiplied

std::string fixture(const std::string& name) {
  return std::string(QVA_TEST_DATA_DIR) + "/image/" + name;
}

std::vector<std::uint8_t> readFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

Pixel pixelAt(const Bitmap& bitmap, int x, int y) {
  const std::uint8_t* p = bitmap.bytes() + static_cast<std::size_t>(y) * bitmap.rowBytes() + x * 4;
  return {p[0], p[1], p[2], p[3]};
}

void expectNear(const Pixel& actual, const Pixel& expected, int tolerance, const std::string& where) {
  for (int c = 0; c < 4; ++c) {
    EXPECT_NEAR(actual[c], expected[c], tolerance) << where << " channel " << c;
  }
}

// The fixtures hold one 5×3 picture: red, green, blue, half-transparent white (opaque white where the
// format has no partial alpha), transparent; a yellow row; black and white with a transparent end.
void expectPattern(const std::string& name, bool partialAlpha, bool alpha, int tolerance) {
  SCOPED_TRACE(name);
  const auto result = ImageDecoder::decodeFile(fixture(name));
  ASSERT_TRUE(result.bitmap) << result.error;
  const Bitmap& bitmap = *result.bitmap;
  ASSERT_EQ(bitmap.width(), 5);
  ASSERT_EQ(bitmap.height(), 3);
  EXPECT_EQ(bitmap.rowBytes(), 32u);
  expectNear(pixelAt(bitmap, 0, 0), {0, 0, 255, 255}, tolerance, "red");
  expectNear(pixelAt(bitmap, 1, 0), {0, 255, 0, 255}, tolerance, "green");
  expectNear(pixelAt(bitmap, 2, 0), {255, 0, 0, 255}, tolerance, "blue");
  expectNear(pixelAt(bitmap, 3, 0), partialAlpha ? Pixel{128, 128, 128, 128} : Pixel{255, 255, 255, 255},
             tolerance, "white");
  if (alpha) {
    expectNear(pixelAt(bitmap, 4, 0), {0, 0, 0, 0}, 0, "transparent");
  }
  expectNear(pixelAt(bitmap, 2, 1), {0, 255, 255, 255}, tolerance, "yellow");
  expectNear(pixelAt(bitmap, 1, 2), {255, 255, 255, 255}, tolerance, "white row");
  expectNear(pixelAt(bitmap, 2, 2), {0, 0, 0, 255}, tolerance, "black row");
}

TEST(ImageDecoderTest, DecodesEveryFormatPremultipliedTopDown) {
  expectPattern("pattern.png", true, true, 1);
  expectPattern("pattern.tiff", true, true, 1);
  expectPattern("pattern.webp", true, true, 1);
  // Animated pictures show their first frame; the second is the pattern mirrored.
  expectPattern("pattern-animated.webp", true, true, 1);
  expectPattern("pattern.bmp", false, true, 0);
  expectPattern("pattern.gif", false, true, 0);
  expectPattern("pattern.jpg", false, false, 12);
}

TEST(ImageDecoderTest, ColourAboveAlphaIsLimitedToTheAlpha) {
  // A TIFF that claims associated alpha but holds colour greater than its alpha: the picture must still
  // be valid premultiplied colour, or straight-alpha output would overflow.
  const auto result = ImageDecoder::decodeFile(fixture("damaged-alpha.tiff"));
  ASSERT_TRUE(result.bitmap) << result.error;
  const Bitmap& bitmap = *result.bitmap;
  for (int y = 0; y < bitmap.height(); ++y) {
    for (int x = 0; x < bitmap.width(); ++x) {
      const Pixel pixel = pixelAt(bitmap, x, y);
      for (int c = 0; c < 3; ++c) {
        EXPECT_LE(pixel[c], pixel[3]) << "pixel " << x << "," << y << " channel " << c;
      }
    }
  }
}

TEST(ImageDecoderTest, PicturesLargerThanTheirDataAreRefusedBeforeDecoding) {
  // 276 bytes that claim 5 × 50331655 pixels in strips of no bytes: refused at once, not after
  // making and clearing gigabytes.
  const auto result = ImageDecoder::decodeFile(fixture("missing-strips.tiff"));
  EXPECT_FALSE(result.bitmap);
  EXPECT_NE(result.error.find("strips lie outside the file"), std::string::npos) << result.error;
}

// A little-endian grey TIFF of one PackBits strip holding the coded bytes.
std::vector<std::uint8_t> packBitsTiff(std::uint32_t width, std::uint32_t height,
                                       const std::vector<std::uint8_t>& coded) {
  std::vector<std::uint8_t> file = {'I', 'I', 42, 0, 8, 0, 0, 0};
  const auto append = [&file](std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
      file.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }
  };
  constexpr std::uint32_t kShort = 3;
  constexpr std::uint32_t kLong = 4;
  const std::uint32_t entries[][3] = {{256, kLong, width},  {257, kLong, height}, {258, kShort, 8},
                                      {259, kShort, 32773}, {262, kShort, 1},     {273, kLong, 122},
                                      {277, kShort, 1},     {278, kLong, height}, {279, kLong, 0}};
  append(std::size(entries), 2);
  for (const auto& entry : entries) {
    append(entry[0], 2);
    append(entry[1], 2);
    append(1, 4);
    append(entry[0] == 279 ? static_cast<std::uint32_t>(coded.size()) : entry[2], 4);
  }
  append(0, 4);
  file.insert(file.end(), coded.begin(), coded.end());
  return file;
}

TEST(ImageDecoderTest, CompressedStripsMustBeAbleToHoldThePicture) {
  // Two bytes of PackBits give at most 128 pixels: exactly that decodes, more is refused before a
  // picture that size is made.
  const auto whole = packBitsTiff(128, 1, {0x81, 200});
  const auto decoded = ImageDecoder::decode(whole.data(), whole.size());
  ASSERT_TRUE(decoded.bitmap) << decoded.error;
  expectNear(pixelAt(*decoded.bitmap, 127, 0), {200, 200, 200, 255}, 0, "last pixel");
  for (const auto& [width, height] : {std::pair{129u, 1u}, std::pair{5u, 40000000u}}) {
    const auto tooSmall = packBitsTiff(width, height, {0x81, 200});
    const auto refused = ImageDecoder::decode(tooSmall.data(), tooSmall.size());
    EXPECT_FALSE(refused.bitmap) << width << "x" << height;
    EXPECT_NE(refused.error.find("larger than its strips can hold"), std::string::npos) << refused.error;
  }
}

TEST(ImageDecoderTest, RowLengthRuleIsTheCallers) {
  // A rule neither of the system's own rules gives for any width.
  const auto result =
      ImageDecoder::decodeFile(fixture("pattern.png"), [](std::size_t width) { return width * 4 + 100; });
  ASSERT_TRUE(result.bitmap);
  EXPECT_EQ(result.bitmap->rowBytes(), static_cast<std::size_t>(result.bitmap->width()) * 4 + 100);
}

TEST(ImageDecoderTest, TruncatedFilesAreErrorsNotPartialPictures) {
  for (const char* name : {"pattern.png", "pattern.tiff", "pattern.webp", "pattern-animated.webp",
                           "pattern.bmp", "pattern.gif", "pattern.jpg"}) {
    const auto data = readFile(fixture(name));
    ASSERT_GT(data.size(), 20u) << name;
    // Every cut through the file fails cleanly (never crashes, never returns half an image); a cut only
    // through PNG's 12-byte end marker or TIFF's final 4-byte directory link still holds the whole picture.
    const std::string format(name);
    const std::size_t kept = format == "pattern.png" ? 12 : format == "pattern.tiff" ? 4 : 1;
    for (std::size_t length = 1; length + kept < data.size(); length += 3) {
      const auto result = ImageDecoder::decode(data.data(), length);
      EXPECT_FALSE(result.bitmap) << name << " cut at " << length;
      EXPECT_FALSE(result.error.empty());
    }
  }
}

TEST(ImageDecoderTest, JpegCutShortBeforeItsEndMarkerIsAnError) {
  // Writers that stop early still close the file with an end marker; the library then fills the
  // missing blocks with grey and only warns.
  const auto data = readFile(fixture("pattern.jpg"));
  ASSERT_GT(data.size(), 20u);
  const std::uint8_t endMarker[2] = {0xFF, 0xD9};
  for (std::size_t length = 1; length + 3 < data.size(); length += 3) {
    std::vector<std::uint8_t> cut(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(length));
    cut.insert(cut.end(), endMarker, endMarker + 2);
    const auto result = ImageDecoder::decode(cut.data(), cut.size());
    EXPECT_FALSE(result.bitmap) << "cut at " << length;
    EXPECT_FALSE(result.error.empty());
  }
}

TEST(ImageDecoderTest, UnknownAndMissingInput) {
  const std::string text = "just some text, not an image";
  const auto unknown = ImageDecoder::decode(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  EXPECT_FALSE(unknown.bitmap);
  EXPECT_NE(unknown.error.find("known format"), std::string::npos);
  EXPECT_FALSE(ImageDecoder::decode(nullptr, 0).bitmap);
  const auto missing = ImageDecoder::decodeFile(fixture("no-such-file.png"));
  EXPECT_FALSE(missing.bitmap);
  EXPECT_NE(missing.error.find("no-such-file.png"), std::string::npos);
  const auto folder = ImageDecoder::decodeFile(std::string(QVA_TEST_DATA_DIR));
  EXPECT_FALSE(folder.bitmap);
}

TEST(ImageDecoderTest, RefusesHugeDeclaredSizes) {
  // A PNG header that claims 100000 × 100000 pixels.
  auto data = readFile(fixture("pattern.png"));
  ASSERT_GT(data.size(), 24u);
  const std::uint8_t huge[8] = {0x00, 0x01, 0x86, 0xA0, 0x00, 0x01, 0x86, 0xA0};
  std::copy(huge, huge + 8, data.begin() + 16);
  const auto result = ImageDecoder::decode(data.data(), data.size());
  EXPECT_FALSE(result.bitmap);
  // An animated WebP whose canvas claims 20000 × 20000 pixels is refused before anything that size is
  // made, even though its frames are small.
  auto animation = readFile(fixture("pattern-animated.webp"));
  ASSERT_GT(animation.size(), 30u);
  const std::uint8_t canvas[6] = {0x1F, 0x4E, 0x00, 0x1F, 0x4E, 0x00};  // 19999, stored as size - 1
  std::copy(canvas, canvas + 6, animation.begin() + 24);
  const auto hostile = ImageDecoder::decode(animation.data(), animation.size());
  EXPECT_FALSE(hostile.bitmap);
  EXPECT_NE(hostile.error.find("20000x20000 pixels is too large"), std::string::npos) << hostile.error;
}

}  // namespace
}  // namespace qva
