#include <gtest/gtest.h>

#include "patches/psd/QVAPSDLayerImporterPlugIn.h"
#include "patches/psd/QVAPSDLayerPlugIn.h"
#include "support/DriveScript.h"
#include "support/PatchDriver.h"
#include "support/PixelProbe.h"
#include "support/PsdTestDocument.h"

namespace qva {
namespace {

// A layer structure as the importer publishes it, with a solid red picture of the given size.
PropertyList layerStructure(int width, int height, double x, double y) {
  return {{"image", {{"solid", {1, 0, 0, 1}}, {"width", width}, {"height", height}}},
          {"canvasWidth", 1920},
          {"canvasHeight", 1080},
          {"name", "Bar"},
          {"x", x},
          {"y", y},
          {"opacity", 0.5},
          {"isVisible", true},
          {"usePixelUnits", false},
          {"useCanvasBounds", false},
          {"totalWidth", 1920},
          {"totalHeight", 1080},
          {"alignTopLeft", true},
          {"scaleWithViewPort", true}};
}

std::vector<PropertyList> drive(const PropertyList& steps,
                                const PropertyList& context = PropertyList::object()) {
  return drivePatch("QVAPSDLayerPlugIn", steps, PropertyList::object(), context);
}

PropertyList withChanges(PropertyList layer, const PropertyList& changes) {
  layer.update(changes);
  return layer;
}

// Checks the size and place a step's outputs give the layer, and the size of its frame.
void expectLayout(const PropertyList& outputs, double width, double height, double x, double y,
                  int frameWidth, int frameHeight) {
  EXPECT_NEAR(outputs["outputWidth"].get<double>(), width, 1e-12);
  EXPECT_NEAR(outputs["outputHeight"].get<double>(), height, 1e-12);
  EXPECT_NEAR(outputs["outputX"].get<double>(), x, 1e-12);
  EXPECT_NEAR(outputs["outputY"].get<double>(), y, 1e-12);
  EXPECT_EQ(outputs["outputImage"]["image"]["width"], frameWidth);
  EXPECT_EQ(outputs["outputImage"]["image"]["height"], frameHeight);
  EXPECT_EQ(outputs["outputImage"]["image"]["rowBytes"], frameWidth / 4 * 16 + 16);
}

TEST(QVAPSDLayerPlugInTest, HostUnitsMapTheNominalRasterOntoTheBounds) {
  const auto lines = drive({{{"time", 0}, {"inputs", {{"inputPSDLayer", layerStructure(192, 108, 0, 0)}}}}});
  const PropertyList& outputs = lines[0]["outputs"];
  expectLayout(outputs, 0.2, 0.1125, -0.9, 0.50625, 192, 108);
  EXPECT_EQ(outputs["outputImage"]["image"]["rowBytes"], 784);
  EXPECT_EQ(outputs["outputName"], "Bar");
  EXPECT_EQ(outputs["outputOpacity"], 0.5);
  EXPECT_EQ(outputs["outputIsVisible"], true);
}

TEST(QVAPSDLayerPlugInTest, SizesAndOriginsForEveryUnitAndBoundsChoice) {
  const PropertyList base = layerStructure(190, 100, 40, 60);
  // Step 4 does not scale to the nominal raster: the live viewport (here 960 × 540) is the whole raster.
  const PropertyList changes[] = {{{"usePixelUnits", true}},
                                  {{"usePixelUnits", true}, {"alignTopLeft", false}},
                                  {{"usePixelUnits", true}, {"useCanvasBounds", true}},
                                  {{"useCanvasBounds", true}},
                                  {{"scaleWithViewPort", false}},
                                  {{"alignTopLeft", false}}};
  PropertyList steps = PropertyList::array();
  for (const PropertyList& change : changes) {
    steps.push_back({{"time", steps.size()}, {"inputs", {{"inputPSDLayer", withChanges(base, change)}}}});
  }
  const auto lines = drive(steps, PropertyList{{"viewport", PropertyList::array({960u, 540u})}});
  const auto expect = [&](std::size_t step, double width, double height, double x, double y, int frameWidth,
                          int frameHeight) {
    SCOPED_TRACE(step);
    expectLayout(lines[step]["outputs"], width, height, x, y, frameWidth, frameHeight);
  };
  expect(0, 190, 100, 40, 60, 190, 100);
  expect(1, 190, 100, 0, 0, 190, 100);
  expect(2, 1920, 1080, 0, 0, 190, 100);
  // The canvas in host units fills the bounds, centred; its frame is the viewport.
  expect(3, 2, 1.125, 0, 0, 960, 540);
  expect(4, 2 * 190 / 960.0, 1.125 * 100 / 540.0, (2 * 40 / 960.0 - 1) + 190 / 960.0,
         -((1.125 * 60 / 540.0 - 0.5625) + 1.125 * 50 / 540.0), 190, 100);
  expect(5, 2 * 190 / 1920.0, 1.125 * 100 / 1080.0, 0, 0, 190, 100);
}

TEST(QVAPSDLayerPlugInTest, StructureWithoutImageLeavesTheOutputsAlone) {
  PropertyList noImage = layerStructure(8, 8, 0, 0);
  noImage.erase("image");
  const auto lines = drive({{{"time", 0}, {"inputs", {{"inputPSDLayer", layerStructure(8, 8, 0, 0)}}}},
                            {{"time", 1}, {"inputs", {{"inputPSDLayer", noImage}}}}});
  EXPECT_TRUE(lines[1]["executed"].get<bool>());
  EXPECT_EQ(lines[1]["outputs"], lines[0]["outputs"]);
}

// A pixel of the published picture.
Pixel pixel(const Value& image, int x, int y) {
  return pixelAt(*image.imageValue()->pixelBuffer(), x, y);
}

TEST(QVAPSDLayerPlugInTest, CanvasBoundsDrawTheLayerInPlaceScaledOntoTheViewport) {
  test::PsdTestDocument document;
  document.width = 1920;
  document.height = 1080;
  test::PsdTestLayer bar;
  bar.name = "Bar";
  bar.top = 200;
  bar.left = 100;
  bar.bottom = 308;
  bar.right = 292;
  bar.pixel = [](int, int) { return std::array<std::uint8_t, 4>{0, 255, 0, 255}; };
  document.layers = {bar};
  const std::vector<std::uint8_t> bytes = document.bytes();

  PatchDriver importer(std::make_unique<QVAPSDLayerImporterPlugIn>());
  importer.setSetting("psdData", {{"data", PropertyList::binary(bytes)}});
  importer.setSetting("useCanvasBounds", true);
  ASSERT_TRUE(importer.frame(0));
  const Value layer = importer.output("outputLayers").structureValue()->at(0);

  PatchDriver driver(std::make_unique<QVAPSDLayerPlugIn>("qva"));
  driver.context().setViewport({960, 540});
  driver.set("inputPSDLayer", layer);
  ASSERT_TRUE(driver.frame(0));
  const Value image = driver.output("outputImage");
  ASSERT_EQ(image.imageValue()->width(), 960);
  // Half size: the bar covers x 50…145 and y 100…153 of the frame.
  EXPECT_EQ(pixel(image, 60, 110), (Pixel{0, 255, 0, 255}));
  EXPECT_EQ(pixel(image, 144, 153), (Pixel{0, 255, 0, 255}));
  EXPECT_EQ(pixel(image, 48, 110)[3], 0);
  EXPECT_EQ(pixel(image, 60, 98)[3], 0);
  EXPECT_EQ(pixel(image, 147, 110)[3], 0);
  EXPECT_EQ(pixel(image, 60, 156)[3], 0);

  // Neither the input nor the viewport changed: nothing is computed again.
  ASSERT_TRUE(driver.frame(1));
  EXPECT_EQ(driver.output("outputImage").imageValue(), image.imageValue());
  // A resized viewport lays the layer out again.
  driver.context().setViewport({1920, 1080});
  ASSERT_TRUE(driver.frame(2));
  EXPECT_EQ(driver.output("outputImage").imageValue()->width(), 1920);
  EXPECT_EQ(pixel(driver.output("outputImage"), 100, 200)[1], 255);
  EXPECT_EQ(pixel(driver.output("outputImage"), 99, 200)[1], 0);
}

TEST(QVAPSDLayerPlugInTest, OnlyTheEditorReRendersWhenAViewerIsResized) {
  for (const auto& [process, observes] :
       std::vector<std::pair<std::string, bool>>{{"Composition Editor", true}, {"qva", false}}) {
    PatchDriver driver(std::make_unique<QVAPSDLayerPlugIn>(process));
    auto& patch = static_cast<QVAPSDLayerPlugIn&>(driver.patch());
    int renders = 0;
    patch.setRenderRequestHandler([&renders] { ++renders; });
    patch.windowDidResize("Lower third - Viewer");
    EXPECT_EQ(renders, 0) << "not yet enabled";
    ASSERT_TRUE(driver.start());
    EXPECT_EQ(patch.observesWindowResizes(), observes);
    patch.windowDidResize("Lower third - Viewer");
    patch.windowDidResize("Lower third - Editor");
    EXPECT_EQ(renders, observes ? 1 : 0) << process;
    driver.stop();
    patch.windowDidResize("Lower third - Viewer");
    EXPECT_EQ(renders, observes ? 1 : 0) << process;
  }
}

}  // namespace
}  // namespace qva
