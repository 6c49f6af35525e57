// The importer patch as a host drives it, through the same script runner as `qva drive`.
#include <gtest/gtest.h>

#include <fstream>

#include "host/Base64.h"
#include "patches/psd/QVAPSDLayerImporterPlugIn.h"
#include "support/DriveScript.h"
#include "support/PsdTestDocument.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

using test::PsdTestDocument;
using test::PsdTestLayer;

PsdTestDocument documentOf(std::uint32_t width, std::uint32_t height, std::size_t layerCount) {
  PsdTestDocument document;
  document.width = width;
  document.height = height;
  for (std::size_t i = 0; i < layerCount; ++i) {
    PsdTestLayer layer;
    layer.name = "Layer " + std::string(1, static_cast<char>('A' + i));
    layer.top = static_cast<std::int32_t>(10 * i);
    layer.left = static_cast<std::int32_t>(20 * i);
    layer.bottom = layer.top + 4;
    layer.right = layer.left + 6;
    layer.opacity = static_cast<std::uint8_t>(255 - 100 * (i % 2));
    layer.flags = i == 0 ? 10 : 8;
    document.layers.push_back(layer);
  }
  return document;
}

PropertyList byValue(const PsdTestDocument& document) {
  const std::vector<std::uint8_t> bytes = document.bytes();
  return {{"data", {{"data", encodeBase64(std::string(bytes.begin(), bytes.end()))}}}};
}

std::string writeDocument(const TemporaryFolder& folder, const std::string& name,
                          const PsdTestDocument& document) {
  const std::string path = (folder / name).string();
  const std::vector<std::uint8_t> bytes = document.bytes();
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return path;
}

std::vector<PropertyList> drive(const PropertyList& settings, const PropertyList& steps,
                                const PropertyList& context = PropertyList::object()) {
  return drivePatch("QVAPSDLayerImporterPlugIn", steps, settings, context);
}

TEST(QVAPSDLayerImporterPlugInTest, EmbeddedBroadcastDocumentPublishesLayersAndSelectsItsNorm) {
  const PropertyList psdData = byValue(documentOf(1920, 1080, 2));
  const auto lines = drive({{"psdData", psdData}}, {{{"time", 0}}, {{"op", "serialize"}}});
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(lines[0]["executed"].get<bool>());
  const PropertyList& layers = lines[0]["outputs"]["outputLayers"];
  ASSERT_EQ(layers.size(), 2u);
  const PropertyList& top = layers[0];
  std::vector<std::string> keys;
  for (const auto& item : top.items()) {
    keys.push_back(item.key());
  }
  EXPECT_EQ(keys,
            (std::vector<std::string>{"image", "canvasWidth", "canvasHeight", "name", "x", "y", "opacity",
                                      "isVisible", "usePixelUnits", "useCanvasBounds", "totalWidth",
                                      "totalHeight", "alignTopLeft", "scaleWithViewPort"}));
  EXPECT_EQ(top["name"], "Layer B");
  EXPECT_EQ(top["x"], 20.0);
  EXPECT_EQ(top["y"], 10.0);
  EXPECT_NEAR(top["opacity"].get<double>(), 155.0 / 255.0, 1e-6);
  EXPECT_EQ(top["isVisible"], true);
  EXPECT_EQ(top["image"]["image"]["width"], 6);
  EXPECT_EQ(top["canvasWidth"], 1920.0);
  EXPECT_EQ(top["totalHeight"], 1080.0);
  EXPECT_EQ(top["alignTopLeft"], true);
  EXPECT_EQ(layers[1]["name"], "Layer A");
  EXPECT_EQ(layers[1]["isVisible"], false);

  const PropertyList& settings = lines[1]["settings"];
  EXPECT_EQ(settings["psdData"], psdData);
  EXPECT_TRUE(settings["psdPath"].is_null());
  EXPECT_EQ(settings["sizeOption"], 1);
  EXPECT_EQ(settings["scaleWithViewPort"], true);
  EXPECT_EQ(settings["tvNormIndex"], 1);
  EXPECT_EQ(settings["topLeftOrigin"], true);
  EXPECT_EQ(settings["totalWidth"], 1920);
  EXPECT_EQ(settings["totalHeight"], 1080);
}

TEST(QVAPSDLayerImporterPlugInTest, OtherCanvasSizesTurnTopLeftOriginOffAndKeepTheSizeOption) {
  const auto lines =
      drive({{"sizeOption", 2}, {"topLeftOrigin", true}, {"psdData", byValue(documentOf(1000, 1000, 1))}},
            {{{"op", "serialize"}}});
  const PropertyList& settings = lines[0]["settings"];
  EXPECT_EQ(settings["sizeOption"], 2);
  EXPECT_EQ(settings["topLeftOrigin"], false);
  EXPECT_EQ(settings["totalWidth"], 1000);
  EXPECT_EQ(settings["totalHeight"], 1000);
}

TEST(QVAPSDLayerImporterPlugInTest, SizeOptionsApplyTheNormTableOrTheCanvas) {
  PropertyList steps = PropertyList::array();
  steps.push_back({{"op", "settings"}, {"settings", {{"sizeOption", 1}}}});
  for (int index = 0; index <= 6; ++index) {
    steps.push_back({{"op", "settings"}, {"settings", {{"tvNormIndex", index}}}});
    steps.push_back({{"op", "serialize"}});
  }
  steps.push_back({{"op", "settings"}, {"settings", {{"sizeOption", 0}}}});
  steps.push_back({{"op", "serialize"}});
  const auto lines = drive({{"psdData", byValue(documentOf(640, 360, 1))}}, steps);
  std::vector<std::pair<int, int>> sizes;
  for (int index = 0; index <= 6; ++index) {
    const PropertyList& settings = lines[static_cast<std::size_t>(2 + 2 * index)]["settings"];
    EXPECT_EQ(settings["scaleWithViewPort"], true);
    EXPECT_EQ(settings["tvNormIndex"], index);
    sizes.emplace_back(settings["totalWidth"].get<int>(), settings["totalHeight"].get<int>());
  }
  EXPECT_EQ(sizes,
            (std::vector<std::pair<int, int>>{
                {1280, 720}, {1920, 1080}, {720, 534}, {788, 576}, {872, 486}, {1050, 576}, {1050, 576}}));
  const PropertyList& canvas = lines.back()["settings"];
  EXPECT_EQ(canvas["sizeOption"], 0);
  EXPECT_EQ(canvas["scaleWithViewPort"], false);
  EXPECT_EQ(canvas["totalWidth"], 640);
  EXPECT_EQ(canvas["totalHeight"], 360);
}

TEST(QVAPSDLayerImporterPlugInTest, OnePortPerLayerFollowsTheDocumentByReference) {
  TemporaryFolder folder("psd-ports");
  const std::string five = writeDocument(folder, "five.psd", documentOf(200, 100, 5));
  const std::string two = writeDocument(folder, "two.psd", documentOf(200, 100, 2));
  const auto lines = drive({{"psdData", {{"path", five}}}, {"portForEveryLayer", true}},
                           {{{"op", "ports"}},
                            {{"time", 0}},
                            {{"op", "serialize"}},
                            {{"op", "settings"}, {"settings", {{"psdData", {{"path", two}}}}}},
                            {{"op", "ports"}},
                            {{"op", "settings"}, {"settings", {{"portForEveryLayer", false}}}},
                            {{"op", "ports"}}});
  EXPECT_EQ(
      listedPortKeys(lines[0]["outputs"]),
      (std::vector<std::string>{"outputLayers", "Layer 1", "Layer 2", "Layer 3", "Layer 4", "Layer 5"}));
  EXPECT_TRUE(lines[0]["outputs"][1]["attributes"].empty());
  EXPECT_EQ(lines[1]["outputs"]["Layer 1"]["name"], "Layer E");
  EXPECT_EQ(lines[1]["outputs"]["Layer 5"]["name"], "Layer A");
  EXPECT_EQ(lines[1]["outputs"]["Layer 3"], lines[1]["outputs"]["outputLayers"][2]);
  EXPECT_EQ(lines[2]["settings"]["psdData"], (PropertyList{{"path", five}}));
  EXPECT_EQ(lines[2]["settings"]["psdPath"], five);
  EXPECT_EQ(listedPortKeys(lines[4]["outputs"]),
            (std::vector<std::string>{"outputLayers", "Layer 1", "Layer 2"}));
  EXPECT_EQ(listedPortKeys(lines[6]["outputs"]), (std::vector<std::string>{"outputLayers"}));
}

TEST(QVAPSDLayerImporterPlugInTest, UnreadableDocumentsGiveNoLayersAndSayWhy) {
  std::vector<std::uint8_t> cmyk = documentOf(8, 8, 1).bytes();
  cmyk[25] = 4;
  const PropertyList cmykData = {{"data", {{"data", encodeBase64(std::string(cmyk.begin(), cmyk.end()))}}}};
  auto lines =
      drive({{"psdData", cmykData}, {"portForEveryLayer", true}}, {{{"time", 0}}, {{"op", "ports"}}});
  EXPECT_EQ(lines[0]["outputs"]["outputLayers"], PropertyList::array());
  EXPECT_EQ(
      lines[0]["log"],
      PropertyList::array({"QVAPSDLayerImporterPlugIn loadPSD: CMYK documents are not supported (RGB and "
                           "greyscale are)"}));
  EXPECT_EQ(listedPortKeys(lines[1]["outputs"]), (std::vector<std::string>{"outputLayers"}));

  lines = drive({{"psdData", {{"path", "/nonexistent/art.psd"}}}}, {{{"time", 0}}});
  EXPECT_EQ(lines[0]["log"],
            PropertyList::array({"QVAPSDLayerImporterPlugIn loadPSD: cannot read /nonexistent/art.psd"}));
}

TEST(QVAPSDLayerImporterPlugInTest, RelativeReferencesResolveAgainstTheComposition) {
  TemporaryFolder folder("psd-relative");
  writeDocument(folder, "art.psd", documentOf(64, 32, 3));
  const auto lines = drive({{"psdData", {{"path", "art.psd"}}}}, {{{"time", 0}}, {{"op", "serialize"}}},
                           {{"compositionPath", (folder / "show.qvc").string()}});
  EXPECT_EQ(lines[0]["outputs"]["outputLayers"].size(), 3u);
  EXPECT_TRUE(lines[0]["log"].empty());
  EXPECT_EQ(lines[1]["settings"]["psdData"],
            (PropertyList{{"path", "art.psd"}, {"basePath", folder.path().string()}}));
  EXPECT_EQ(lines[1]["settings"]["psdPath"], "art.psd");
}

}  // namespace
}  // namespace qva
