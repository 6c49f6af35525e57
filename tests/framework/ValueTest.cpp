#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "framework/Image.h"
#include "framework/Structure.h"
#include "framework/Value.h"

namespace qva {
namespace {

TEST(Value, ConversionsFollowTheHostRules) {
  EXPECT_EQ(Value(-3.7).indexValue(), 0u);
  EXPECT_EQ(Value(3.9).indexValue(), 3u);
  EXPECT_EQ(Value(1e12).indexValue(), std::numeric_limits<std::uint32_t>::max());
  EXPECT_EQ(Value(std::nan("")).indexValue(), 0u);
  EXPECT_DOUBLE_EQ(Value("12.5 apples").numberValue(), 12.5);
  EXPECT_DOUBLE_EQ(Value("apples").numberValue(), 0);
  EXPECT_TRUE(Value("true").booleanValue());
  EXPECT_FALSE(Value("").booleanValue());
  EXPECT_FALSE(Value(std::nan("")).booleanValue());
  EXPECT_EQ(Value(0.5).stringValue(), "0.5");
  EXPECT_EQ(Value(std::uint32_t{7}).stringValue(), "7");
  EXPECT_EQ(Value().stringValue(), "");
  EXPECT_FALSE(Value(1.0).colorValue());
}

TEST(Value, ConvertedToKeepsNoValueAndRefusesIncompatibleTypes) {
  EXPECT_TRUE(Value().convertedTo(PortType::Number).isNone());
  EXPECT_EQ(Value(2.0).convertedTo(PortType::Index), Value(std::uint32_t{2}));
  EXPECT_EQ(Value(true).convertedTo(PortType::Number), Value(1.0));
  EXPECT_TRUE(Value(2.0).convertedTo(PortType::Color).isNone());
  EXPECT_TRUE(Value(Color{1, 0, 0, 1}).convertedTo(PortType::String).isNone());
  EXPECT_EQ(Value(Color{1, 0, 0, 1}).convertedTo(PortType::Color), Value(Color{1, 0, 0, 1}));
}

TEST(Value, ComparesScalarsByValueStructuresByContentImagesByIdentity) {
  EXPECT_EQ(Value(std::nan("")), Value(std::nan("")));
  EXPECT_NE(Value(1.0), Value(std::uint32_t{1}));
  EXPECT_NE(Value(), Value(0.0));

  auto first = std::make_shared<Structure>();
  first->set("a", 1.0);
  first->set("b", "x");
  auto second = std::make_shared<Structure>();
  second->set("a", 1.0);
  second->set("b", "x");
  EXPECT_EQ(Value(StructureRef(first)), Value(StructureRef(second)));
  second->set("a", 2.0);
  EXPECT_NE(Value(StructureRef(first)), Value(StructureRef(second)));

  auto pixels = std::make_shared<std::uint8_t[]>(4);
  const auto makeImage = [&] { return std::make_shared<BufferImage>(1, 1, 4, pixels.get(), nullptr); };
  ImageRef image = makeImage();
  EXPECT_EQ(Value(image), Value(image));
  EXPECT_NE(Value(image), Value(ImageRef(makeImage())));
}

TEST(Structure, KeyedMembersKeepInsertionOrderAndReplaceInPlace) {
  Structure structure;
  structure.set("z", 1.0);
  structure.set("a", 2.0);
  structure.set("z", 3.0);
  ASSERT_EQ(structure.size(), 2u);
  EXPECT_EQ(*structure.members()[0].key, "z");
  EXPECT_EQ(structure.at(0), Value(3.0));
  EXPECT_FALSE(structure.isArray());
  EXPECT_EQ(structure.find("missing"), nullptr);
  EXPECT_TRUE(Structure::makeArray({1.0, "two"})->isArray());
}

TEST(BufferImage, ReleasesItsPixelsOnceWhenTheLastReferenceGoes) {
  int releases = 0;
  std::uint8_t pixels[32] = {};
  {
    ImageRef image = std::make_shared<BufferImage>(2, 2, 16, pixels, [&](const std::uint8_t* bytes) {
      EXPECT_EQ(bytes, pixels);
      ++releases;
    });
    ImageRef copy = image;
    image.reset();
    EXPECT_EQ(releases, 0);
    EXPECT_EQ(copy->pixelBuffer()->rowBytes, 16u);
  }
  EXPECT_EQ(releases, 1);
}

}  // namespace
}  // namespace qva
