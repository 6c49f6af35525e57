#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "foundation/psd/PsdReader.h"
#include "support/PsdTestDocument.h"

namespace qva {
namespace {

using test::PsdTestDocument;
using test::PsdTestLayer;
using Rgba = std::array<std::uint8_t, 4>;

PsdReader::Result read(const std::vector<std::uint8_t>& bytes) {
  return PsdReader::read(bytes);
}

// The premultiplied B, G, R, A bytes of a pixel.
const std::uint8_t* pixelAt(const ImageRef& image, int x, int y) {
  const PixelBufferView pixels = *image->pixelBuffer();
  return pixels.bytes + static_cast<std::size_t>(y) * pixels.rowBytes + static_cast<std::size_t>(x) * 4;
}

PsdTestLayer solidLayer(std::string name, std::int32_t top, std::int32_t left, std::int32_t bottom,
                        std::int32_t right, Rgba color) {
  PsdTestLayer layer;
  layer.name = std::move(name);
  layer.top = top;
  layer.left = left;
  layer.bottom = bottom;
  layer.right = right;
  layer.pixel = [color](int, int) { return color; };
  return layer;
}

// A 6 × 4 document: a red background below a half-transparent blue square named in Unicode.
PsdTestDocument twoLayerDocument() {
  PsdTestDocument document;
  document.width = 6;
  document.height = 4;
  PsdTestLayer background = solidLayer("Background", 0, 0, 4, 6, {255, 0, 0, 255});
  background.flags = 9;
  PsdTestLayer square = solidLayer("Überschrift 👽", 1, 2, 3, 5, {0, 0, 200, 128});
  square.opacity = 128;
  square.flags = 10;
  square.blendMode = "mul ";
  document.layers = {background, square};
  return document;
}

std::string utf16be(std::u16string text) {
  std::string bytes;
  for (const char16_t unit : text) {
    bytes.push_back(static_cast<char>(unit >> 8));
    bytes.push_back(static_cast<char>(unit & 0xFF));
  }
  return bytes;
}

TEST(PsdReaderTest, ReadsLayerRecordsBottomUpWithPremultipliedPixels) {
  const auto result = read(twoLayerDocument().bytes());
  ASSERT_TRUE(result.document) << result.error;
  const PsdDocument& document = *result.document;
  EXPECT_EQ(document.width(), 6);
  EXPECT_EQ(document.height(), 4);
  EXPECT_EQ(document.depth(), 8);
  ASSERT_EQ(document.layers().size(), 2u);
  EXPECT_EQ(document.imageResources().size(), 1u);

  const PsdLayerRecord& square = document.layers()[1];
  EXPECT_EQ(square.name, "Überschrift 👽");
  EXPECT_EQ(square.bounds.top, 1);
  EXPECT_EQ(square.bounds.left, 2);
  EXPECT_EQ(square.bounds.width(), 3);
  EXPECT_EQ(square.bounds.height(), 2);
  EXPECT_EQ(square.opacity, 128);
  EXPECT_EQ(square.flags, 10);
  EXPECT_EQ(square.blendMode, "mul ");
  ASSERT_TRUE(square.pixels);
  ASSERT_EQ(square.pixels->width(), 3);
  const std::uint8_t* pixel = pixelAt(square.pixels, 2, 1);
  EXPECT_NEAR(pixel[0], 100, 1);  // blue 200 at alpha 128, premultiplied
  EXPECT_EQ(pixel[1], 0);
  EXPECT_EQ(pixel[2], 0);
  EXPECT_EQ(pixel[3], 128);

  EXPECT_EQ(document.composite()->width(), 6);
  EXPECT_EQ(pixelAt(document.composite(), 5, 3)[0], 255);
  EXPECT_EQ(pixelAt(document.composite(), 5, 3)[3], 255);
}

TEST(PsdReaderTest, IndexesImagesBottomUpAndMetadataTopDown) {
  const auto result = read(twoLayerDocument().bytes());
  ASSERT_TRUE(result.document) << result.error;
  const PsdDocument& document = *result.document;
  EXPECT_EQ(document.imageCount(), 3u);
  EXPECT_EQ(document.layerAtImageIndex(1), nullptr);  // the composite
  EXPECT_EQ(document.layerAtImageIndex(2), &document.layers()[0]);
  EXPECT_EQ(document.layerAtImageIndex(3), &document.layers()[1]);
  EXPECT_EQ(document.layerAtImageIndex(4), nullptr);

  EXPECT_EQ(document.metadataItem("luni", 1), utf16be(u"Überschrift 👽"));
  EXPECT_EQ(document.metadataItem("lopa", 1), std::string(1, '\x80'));
  EXPECT_EQ(document.metadataItem("lflg", 1), std::string(1, '\x0A'));
  EXPECT_EQ(document.metadataItem("luni", 2), utf16be(u"Background"));
  EXPECT_EQ(document.metadataItem("lflg", 2), std::string(1, '\x09'));
  EXPECT_FALSE(document.metadataItem("luni", 0));
  EXPECT_FALSE(document.metadataItem("luni", 3));
  EXPECT_FALSE(document.metadataItem("lnsr", 1));
}

TEST(PsdReaderTest, DocumentWithoutLayersIsOneImage) {
  PsdTestDocument flat;
  flat.composite = [](int x, int) { return Rgba{static_cast<std::uint8_t>(x * 60), 10, 20, 255}; };
  const auto result = read(flat.bytes());
  ASSERT_TRUE(result.document) << result.error;
  EXPECT_TRUE(result.document->layers().empty());
  EXPECT_EQ(result.document->imageCount(), 1u);
  EXPECT_EQ(pixelAt(result.document->composite(), 3, 2)[2], 180);
}

TEST(PsdReaderTest, NamesWithoutUnicodeBlockFallBackToTheLegacyName) {
  PsdTestDocument document = twoLayerDocument();
  document.layers[0].unicodeName = false;
  const auto result = read(document.bytes());
  ASSERT_TRUE(result.document) << result.error;
  EXPECT_EQ(result.document->layers()[0].name, "Background");
  EXPECT_EQ(result.document->metadataItem("luni", 2), utf16be(u"Background"));
}

TEST(PsdReaderTest, GroupsAreLayersWithoutPixelsAndTheirEndRecordsAreNot) {
  PsdTestDocument document = twoLayerDocument();
  PsdTestLayer end = solidLayer("</Layer group>", 0, 0, 0, 0, {});
  end.section = 3;
  PsdTestLayer group = solidLayer("Group", 0, 0, 0, 0, {});
  group.section = 1;
  group.flags = 26;
  document.layers = {document.layers[0], end, document.layers[1], group};
  const auto result = read(document.bytes());
  ASSERT_TRUE(result.document) << result.error;
  const auto& layers = result.document->layers();
  ASSERT_EQ(layers.size(), 3u);
  EXPECT_EQ(layers[1].name, "Überschrift 👽");
  EXPECT_EQ(layers[2].name, "Group");
  EXPECT_EQ(layers[2].section, PsdSectionType::OpenGroup);
  EXPECT_FALSE(layers[2].pixels);
  EXPECT_EQ(result.document->imageCount(), 4u);
}

struct Variant {
  std::uint16_t compression;
  std::uint16_t depth;
  std::uint16_t colorMode;
};

class PsdReaderVariantTest : public testing::TestWithParam<Variant> {};

TEST_P(PsdReaderVariantTest, EveryCompressionAndDepthGivesTheSamePixels) {
  const Variant variant = GetParam();
  PsdTestDocument document;
  document.width = 300;  // rows longer than one PackBits run
  document.height = 3;
  document.compression = variant.compression;
  document.depth = variant.depth;
  document.colorMode = variant.colorMode;
  document.layersInTaggedBlock = variant.depth == 16;
  PsdTestLayer gradient = solidLayer("Gradient", -1, 5, 2, 290, {});
  gradient.pixel = [](int x, int y) {
    return Rgba{static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(x / 2),
                static_cast<std::uint8_t>(y * 9), static_cast<std::uint8_t>(x < 100 ? 255 : 255 - x / 2)};
  };
  document.layers = {gradient};
  const auto result = read(document.bytes());
  ASSERT_TRUE(result.document) << result.error;
  ASSERT_EQ(result.document->layers().size(), 1u);
  const ImageRef& pixels = result.document->layers()[0].pixels;
  ASSERT_EQ(pixels->width(), 285);
  ASSERT_EQ(pixels->height(), 3);
  const bool grey = variant.colorMode == 1;
  for (int y = 0; y < 3; ++y) {
    for (int x = 0; x < 285; x += 7) {
      const Rgba expected = gradient.pixel(x, y);
      const std::uint8_t* got = pixelAt(pixels, x, y);
      const auto premultiplied = [&](std::uint8_t value) { return value * expected[3] / 255.0; };
      ASSERT_EQ(got[3], expected[3]) << x << "," << y;
      EXPECT_NEAR(got[2], premultiplied(expected[0]), 1) << x << "," << y;
      EXPECT_NEAR(got[1], premultiplied(grey ? expected[0] : expected[1]), 1) << x << "," << y;
      EXPECT_NEAR(got[0], premultiplied(grey ? expected[0] : expected[2]), 1) << x << "," << y;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Compressions, PsdReaderVariantTest,
                         testing::Values(Variant{0, 8, 3}, Variant{1, 8, 3}, Variant{2, 8, 3},
                                         Variant{3, 8, 3}, Variant{1, 16, 3}, Variant{3, 16, 3},
                                         Variant{0, 16, 1}, Variant{1, 8, 1}));

// Sets a big-endian field of the header: version at 4, channels at 12, height at 14, width at 18, depth at
// 22, colour mode at 24.
std::vector<std::uint8_t> withHeaderField(std::size_t at, std::size_t size, std::uint32_t value) {
  std::vector<std::uint8_t> bytes = PsdTestDocument().bytes();
  for (std::size_t i = 0; i < size; ++i) {
    bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * (size - 1 - i)));
  }
  return bytes;
}

TEST(PsdReaderTest, RefusesWhatItDoesNotSupportByName) {
  struct Case {
    std::size_t at;
    std::size_t size;
    std::uint32_t value;
    std::string message;
  };
  const std::vector<Case> cases = {
      {24, 2, 4, "CMYK documents are not supported (RGB and greyscale are)"},
      {24, 2, 2, "indexed-colour documents are not supported"},
      {24, 2, 9, "Lab documents are not supported"},
      {4, 2, 2, "large documents (PSB) are not supported"},
      {4, 2, 3, "unknown document version 3"},
      {22, 2, 32, "32-bit documents are not supported (8 and 16 bits are)"},
      {22, 2, 1, "1-bit documents are not supported"},
      {14, 4, 60000, "a canvas of 4 × 60000 pixels is outside the 1 to 30000 pixels a side"},
      {18, 4, 0, "a canvas of 0 × 4 pixels is outside"},
      {12, 2, 0, "the document claims 0 channels"},
      {12, 2, 2, "an RGB document needs three channels"},
  };
  for (const Case& c : cases) {
    const auto result = read(withHeaderField(c.at, c.size, c.value));
    EXPECT_FALSE(result.document);
    EXPECT_NE(result.error.find(c.message), std::string::npos) << result.error;
  }
  std::vector<std::uint8_t> huge = withHeaderField(18, 4, 30000);
  for (std::size_t i = 0; i < 4; ++i) {
    huge[14 + i] = huge[18 + i];
  }
  EXPECT_EQ(read(huge).error, "a canvas of 30000 × 30000 pixels is too large");
  EXPECT_EQ(read({'G', 'I', 'F', '8', '9', 'a'}).error, "not a Photoshop document (no 8BPS signature)");
  EXPECT_FALSE(read({}).document);
}

TEST(PsdReaderTest, RefusesEveryTruncationCleanly) {
  const std::vector<std::uint8_t> bytes = twoLayerDocument().bytes();
  ASSERT_TRUE(read(bytes).document);
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    const auto result =
        read(std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + static_cast<long>(length)));
    ASSERT_FALSE(result.document) << length;
    ASSERT_FALSE(result.error.empty()) << length;
  }
}

// The offset of the first layer record's channel table: the 24 bytes before its blend signature.
std::size_t channelTable(const std::vector<std::uint8_t>& bytes) {
  const std::string blend = "8BIMnorm";
  const auto at = std::search(bytes.begin(), bytes.end(), blend.begin(), blend.end());
  return static_cast<std::size_t>(at - bytes.begin()) - 24;
}

void put32(std::vector<std::uint8_t>& bytes, std::size_t at, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) {
    bytes[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
  }
}

TEST(PsdReaderTest, RefusesLyingLengthsCountsAndBounds) {
  const std::vector<std::uint8_t> original = twoLayerDocument().bytes();
  const std::size_t table = channelTable(original);
  const auto refused = [](const std::vector<std::uint8_t>& bytes) {
    const auto result = PsdReader::read(bytes);
    EXPECT_FALSE(result.document);
    EXPECT_FALSE(result.error.empty());
    return result.error;
  };

  std::vector<std::uint8_t> bytes = original;
  put32(bytes, table + 2, 0xFFFFFF00);  // a channel far longer than the document
  EXPECT_EQ(refused(bytes), "the document ends inside the layer channel data");

  bytes = original;
  put32(bytes, table - 2 - 16 + 8, 20000);   // bottom: a layer 20000 rows high whose data is tiny
  put32(bytes, table - 2 - 16 + 12, 20000);  // right
  refused(bytes);

  bytes = original;
  put32(bytes, table - 2 - 16 + 8, 0x7FFFFFFF);  // bounds beyond any canvas
  put32(bytes, table - 2 - 16 + 12, 0x7FFFFFFF);
  EXPECT_NE(refused(bytes).find("is too large"), std::string::npos);

  // The layer count sits right before the first record; claim 30,000 layers with two records there.
  bytes = original;
  bytes[table - 2 - 16 - 2] = 0x75;
  bytes[table - 2 - 16 - 1] = 0x30;
  refused(bytes);

  // The image resources claim more bytes than the document has.
  bytes = original;
  put32(bytes, 30, 0x7FFFFFFF);
  EXPECT_EQ(refused(bytes), "the document ends inside the image resources");
}

TEST(PsdReaderTest, ReadsThirtyThousandLayers) {
  PsdTestDocument document;
  PsdTestLayer empty = solidLayer("x", 0, 0, 0, 0, {});
  empty.unicodeName = false;
  document.layers.assign(30000, empty);
  document.layers.back() = solidLayer("Top", 0, 0, 2, 2, {1, 2, 3, 255});
  const auto result = read(document.bytes());
  ASSERT_TRUE(result.document) << result.error;
  EXPECT_EQ(result.document->layers().size(), 30000u);
  EXPECT_EQ(result.document->layerAtImageIndex(30001)->name, "Top");
  EXPECT_EQ(result.document->metadataItem("luni", 30000), utf16be(u"x"));
}

}  // namespace
}  // namespace qva
