#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "patches/psd/QVAPSDLayerImporter.h"
#include "support/PsdTestDocument.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

using test::PsdTestDocument;
using test::PsdTestLayer;

PsdTestLayer layer(std::string name, std::int32_t top, std::int32_t left, std::int32_t height,
                   std::int32_t width, std::uint8_t flags = 8, std::uint8_t opacity = 255) {
  PsdTestLayer result;
  result.name = std::move(name);
  result.top = top;
  result.left = left;
  result.bottom = top + height;
  result.right = left + width;
  result.flags = flags;
  result.opacity = opacity;
  return result;
}

std::unique_ptr<QVAPSDLayerImporter> import(const PsdTestDocument& document, bool flipped) {
  const std::vector<std::uint8_t> bytes = document.bytes();
  std::string error;
  auto importer = QVAPSDLayerImporter::layerImporterWithData(bytes, flipped, &error);
  EXPECT_TRUE(importer) << error;
  return importer;
}

TEST(QVAPSDLayerImporterTest, FlatDocumentIsOneVisibleLayerNamedLayer) {
  PsdTestDocument flat;
  flat.width = 7;
  flat.height = 3;
  const auto importer = import(flat, true);
  ASSERT_EQ(importer->layerCount(), 1u);
  const QVAPSDLayer& only = importer->layers()->front();
  EXPECT_EQ(only.name(), "Layer");
  EXPECT_EQ(only.origin().x, 0.0f);
  EXPECT_EQ(only.origin().y, 0.0f);
  EXPECT_EQ(only.opacity(), 1.0f);
  EXPECT_TRUE(only.isVisible());
  EXPECT_EQ(only.image()->width(), 7);
  EXPECT_EQ(importer->PSDImageSize().width, 7.0f);
  EXPECT_EQ(importer->PSDImageSize().height, 3.0f);
}

TEST(QVAPSDLayerImporterTest, ListsLayersTopmostFirstWithTheirOwnMetadata) {
  PsdTestDocument document;
  document.width = 40;
  document.height = 30;
  document.layers = {layer("bottom", 1, 2, 3, 4, 8, 255), layer("middle", 5, 6, 7, 8, 9, 128),
                     layer("top ✓", 10, 11, 12, 13, 10, 0)};
  const auto importer = import(document, true);
  ASSERT_EQ(importer->layerCount(), 3u);
  const auto& layers = *importer->layers();
  EXPECT_EQ(layers[0].name(), "top ✓");
  EXPECT_EQ(layers[1].name(), "middle");
  EXPECT_EQ(layers[2].name(), "bottom");
  EXPECT_FALSE(layers[0].isVisible());
  EXPECT_TRUE(layers[1].isVisible());
  EXPECT_FLOAT_EQ(layers[1].opacity(), 0.50196081f);
  EXPECT_EQ(layers[0].opacity(), 0.0f);
  EXPECT_EQ(layers[0].origin().x, 11.0f);
  EXPECT_EQ(layers[0].origin().y, 10.0f);
  EXPECT_EQ(layers[0].image()->width(), 13);
  EXPECT_EQ(layers[0].image()->height(), 12);
}

TEST(QVAPSDLayerImporterTest, VisibilityIsTheFlagsByteBelowTenOrForty) {
  for (const auto& [flags, visible] : std::vector<std::pair<std::uint8_t, bool>>{
           {8, true}, {9, true}, {10, false}, {40, true}, {2, true}, {24, false}, {39, false}, {41, false}}) {
    PsdTestDocument document;
    document.layers = {layer("only", 0, 0, 2, 2, flags)};
    EXPECT_EQ(import(document, true)->layers()->front().isVisible(), visible) << int{flags};
  }
}

TEST(QVAPSDLayerImporterTest, BottomBasedOriginsMeasureFromTheCanvasBottom) {
  PsdTestDocument document;
  document.width = 4;
  document.height = 1080;
  document.layers = {layer("bar", 0, 3, 100, 1), layer("low", 1000, 0, 80, 2)};
  const auto importer = import(document, false);
  EXPECT_FALSE(importer->flippedCoordinates());
  EXPECT_EQ(importer->layers()->at(1).origin().y, 980.0f);
  EXPECT_EQ(importer->layers()->at(1).origin().x, 3.0f);
  EXPECT_EQ(importer->layers()->at(0).origin().y, 0.0f);
}

TEST(QVAPSDLayerImporterTest, GroupsKeepTheirPlaceWithAnEmptyImage) {
  PsdTestDocument document;
  PsdTestLayer end = layer("</Layer group>", 0, 0, 0, 0);
  end.section = 3;
  PsdTestLayer group = layer("Titles", 0, 0, 0, 0, 26);
  group.section = 1;
  document.layers = {end, layer("inside", 0, 0, 2, 2), group};
  const auto importer = import(document, true);
  ASSERT_EQ(importer->layerCount(), 2u);
  EXPECT_EQ(importer->layers()->at(0).name(), "Titles");
  EXPECT_EQ(importer->layers()->at(0).image()->width(), 0);
  EXPECT_FALSE(importer->layers()->at(0).isVisible());
}

TEST(QVAPSDLayerImporterTest, NothingForMissingEmptyOrRefusedDocuments) {
  TemporaryFolder folder("psd-importer");
  std::string error;
  EXPECT_FALSE(QVAPSDLayerImporter::layerImporterWithPath((folder / "absent.psd").string(), true, &error));
  EXPECT_FALSE(QVAPSDLayerImporter::layerImporterWithPath(folder.path().string(), true, &error));
  EXPECT_FALSE(QVAPSDLayerImporter::layerImporterWithData({}, true, &error));
  EXPECT_EQ(error, "the document is empty");
  std::vector<std::uint8_t> cmyk = PsdTestDocument().bytes();
  cmyk[25] = 4;
  EXPECT_FALSE(QVAPSDLayerImporter::layerImporterWithData(cmyk, true, &error));
  EXPECT_EQ(error, "CMYK documents are not supported (RGB and greyscale are)");
}

TEST(QVAPSDLayerImporterTest, PathImporterKnowsItsFileAndDescribesItself) {
  TemporaryFolder folder("psd-importer");
  PsdTestDocument document;
  document.layers = {layer("Name", 0, 1, 2, 2, 8, 128)};
  const std::string path = (folder / "lower.third.psd").string();
  const std::vector<std::uint8_t> bytes = document.bytes();
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  const auto importer = QVAPSDLayerImporter::layerImporterWithPath(path, true);
  ASSERT_TRUE(importer);
  EXPECT_EQ(importer->path(), path);
  EXPECT_EQ(importer->filename(), "lower.third");
  EXPECT_EQ(importer->description(),
            "<QVAPSDLayerImporter> path: " + path +
                ", layer count: 1, layers:\n(\n    <QVAPSDLayer> name: Name, origin: {1, 0}, "
                "opacity: 0.50 is visible: Yes\n)");
}

}  // namespace
}  // namespace qva
