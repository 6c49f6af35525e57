#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "patches/render/QVACirclePlugIn.h"
#include "patches/render/QVAPolygonPlugIn.h"
#include "patches/render/QVARoundedRectPlugIn.h"
#include "patches/render/QVASkewedRectanglePlugIn.h"
#include "support/PatchDriver.h"
#include "support/PixelProbe.h"

namespace qva {
namespace {

// The pixels of the shape on the output port, valid until the next frame.
PixelBufferView render(PatchDriver& driver) {
  EXPECT_TRUE(driver.frame(0));
  const ImageRef image = driver.output("outputImage").imageValue();
  EXPECT_TRUE(image);
  return image ? *image->pixelBuffer() : PixelBufferView{};
}

bool transparent(const PixelBufferView& pixels) {
  for (int y = 0; y < pixels.height; ++y) {
    for (int x = 0; x < pixels.width; ++x) {
      if (pixelAt(pixels, x, y)[3] != 0) {
        return false;
      }
    }
  }
  return true;
}

const Value& defaultOf(const PatchClass& patchClass, const char* key) {
  return patchClass.attributesForPropertyPortWithKey(key)->defaultValue;
}

TEST(ShapesTest, ClassesAndDefaults) {
  EXPECT_EQ(QVACirclePlugIn::patchClass().name, "QVA Circle");
  EXPECT_EQ(QVARoundedRectPlugIn::patchClass().description,
            "Displays a rectangle with rounded corners and an optional outline.");
  EXPECT_EQ(QVAPolygonPlugIn::patchClass().executionMode, ExecutionMode::Processor);
  // Only the rounded rectangle starts without an outline; only the skewed one is 250 wide.
  EXPECT_FALSE(defaultOf(QVARoundedRectPlugIn::patchClass(), "inputDrawOutline").booleanValue());
  EXPECT_TRUE(defaultOf(QVACirclePlugIn::patchClass(), "inputDrawOutline").booleanValue());
  EXPECT_EQ(defaultOf(QVASkewedRectanglePlugIn::patchClass(), "inputWidth").indexValue(), 250u);
  // The skewed rectangle keeps a corner-radius attribute entry without a port.
  EXPECT_EQ(QVASkewedRectanglePlugIn::attributesForPropertyPortWithKey("inputCornerRadius")->name,
            "Corner Radius");
  EXPECT_EQ(QVASkewedRectanglePlugIn::patchClass().attributesForPropertyPortWithKey("inputCornerRadius"),
            nullptr);
}

TEST(ShapesTest, CircleFillsRedWithABlueOutlineInPaddedRows) {
  PatchDriver driver(std::make_unique<QVACirclePlugIn>());
  const auto pixels = render(driver);
  ASSERT_EQ(pixels.width, 200);
  ASSERT_EQ(pixels.height, 200);
  EXPECT_EQ(pixels.rowBytes, 816u);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(pixels.bytes) % 4096, 0u);
  EXPECT_EQ(pixelAt(pixels, 100, 100), (Pixel{0, 0, 255, 255}));
  EXPECT_EQ(pixelAt(pixels, 3, 100), (Pixel{255, 0, 0, 255}));  // inside the 5-pixel outline
  EXPECT_EQ(pixelAt(pixels, 0, 0)[3], 0);
  EXPECT_EQ(pixelAt(pixels, 199, 199)[3], 0);
}

TEST(ShapesTest, CircleOutlineInsetOnlyAboveOnePixel) {
  PatchDriver driver(std::make_unique<QVACirclePlugIn>());
  driver.set("inputDrawFill", Value(false));
  driver.set("inputOutlineWidth", Value(1.0));
  // Width 1: the rectangle is the whole image, so half the stroke falls outside.
  const auto thin = render(driver);
  EXPECT_NEAR(pixelAt(thin, 0, 100)[3], 128, 40);
  driver.set("inputOutlineWidth", Value(1.5));
  // Width 1.5: inset by 0.75, the stroke covers the first pixel column entirely.
  const auto inset = render(driver);
  EXPECT_GT(pixelAt(inset, 0, 100)[3], 240);
  EXPECT_EQ(pixelAt(inset, 100, 100)[3], 0);
}

TEST(ShapesTest, WithoutOutlineShapesTouchEveryEdge) {
  for (bool rounded : {false, true}) {
    PatchDriver driver(rounded ? std::unique_ptr<Patch>(std::make_unique<QVARoundedRectPlugIn>())
                               : std::unique_ptr<Patch>(std::make_unique<QVACirclePlugIn>()));
    driver.set("inputDrawOutline", Value(false));
    driver.set("inputOutlineWidth", Value(30.0));
    const auto pixels = render(driver);
    EXPECT_GT(pixelAt(pixels, 0, 100)[3], 200) << rounded;
    EXPECT_GT(pixelAt(pixels, 199, 100)[3], 200) << rounded;
    EXPECT_GT(pixelAt(pixels, 100, 0)[3], 200) << rounded;
    EXPECT_GT(pixelAt(pixels, 100, 199)[3], 200) << rounded;
  }
}

TEST(ShapesTest, RoundedCornersClampToHalfTheSide) {
  PatchDriver driver(std::make_unique<QVARoundedRectPlugIn>());
  driver.set("inputCornerRadiusX", Value(std::uint32_t{20}));
  driver.set("inputCornerRadiusY", Value(std::uint32_t{20}));
  const auto corners = render(driver);
  EXPECT_EQ(pixelAt(corners, 1, 1)[3], 0);
  EXPECT_EQ(pixelAt(corners, 10, 100)[3], 255);
  // Radii beyond half the side make the rectangle an ellipse.
  driver.set("inputCornerRadiusX", Value(std::uint32_t{1000}));
  driver.set("inputCornerRadiusY", Value(std::uint32_t{1000}));
  const auto ellipse = render(driver);
  EXPECT_EQ(pixelAt(ellipse, 20, 20)[3], 0);
  EXPECT_EQ(pixelAt(ellipse, 100, 100)[3], 255);
}

TEST(ShapesTest, TriangleVerticesFromTheRightClockwise) {
  PatchDriver driver(std::make_unique<QVAPolygonPlugIn>());
  driver.set("inputEdgeCount", Value(std::uint32_t{3}));
  driver.set("inputDrawOutline", Value(false));
  const auto pixels = render(driver);
  // Vertices at (200, 100), (50, 100 ± 86.6): the left edge is the line x = 50.
  EXPECT_GT(pixelAt(pixels, 197, 100)[3], 100);
  EXPECT_EQ(pixelAt(pixels, 45, 100)[3], 0);
  EXPECT_EQ(pixelAt(pixels, 55, 100)[3], 255);
  EXPECT_EQ(pixelAt(pixels, 52, 100 - 80)[3], 255);
  EXPECT_EQ(pixelAt(pixels, 52, 100 - 90)[3], 0);
}

TEST(ShapesTest, PolygonRadiiShrinkByTheWholeOutlineWidth) {
  PatchDriver driver(std::make_unique<QVAPolygonPlugIn>());
  driver.set("inputEdgeCount", Value(std::uint32_t{4}));
  driver.set("inputDrawFill", Value(true));
  driver.set("inputDrawOutline", Value(true));
  driver.set("inputOutlineWidth", Value(20.0));
  driver.set("inputRoundedEdges", Value(false));
  const auto pixels = render(driver);
  // The rightmost vertex is at x = 200 - 20 = 180; the 20-wide stroke's mitre there reaches 194 and
  // never the image edge.
  EXPECT_EQ(pixelAt(pixels, 199, 100)[3], 0);
  EXPECT_EQ(pixelAt(pixels, 185, 100), (Pixel{255, 0, 0, 255}));
  EXPECT_EQ(pixelAt(pixels, 150, 100), (Pixel{0, 0, 255, 255}));
}

TEST(ShapesTest, FewerThanThreeEdgesGiveATransparentImage) {
  for (std::uint32_t edges : {0u, 2u}) {
    PatchDriver driver(std::make_unique<QVAPolygonPlugIn>());
    driver.set("inputEdgeCount", Value(edges));
    const auto pixels = render(driver);
    EXPECT_EQ(pixels.width, 200);
    EXPECT_TRUE(transparent(pixels)) << edges;
  }
}

TEST(ShapesTest, SkewedRectangleLeansRightAndRefusesSteepAngles) {
  PatchDriver driver(std::make_unique<QVASkewedRectanglePlugIn>());
  driver.set("inputDrawOutline", Value(false));
  driver.set("inputSkewAngle", Value(0.0));
  const auto plain = render(driver);
  EXPECT_EQ(pixelAt(plain, 0, 0)[3], 255);
  EXPECT_EQ(pixelAt(plain, 249, 199)[3], 255);
  // 45° on 200 rows: the top edge starts at x = 200, the bottom one ends at 250 - 200 = 50.
  driver.set("inputSkewAngle", Value(45.0));
  const auto steep = render(driver);
  EXPECT_EQ(pixelAt(steep, 25, 199)[3], 255);
  EXPECT_EQ(pixelAt(steep, 100, 199)[3], 0);
  EXPECT_EQ(pixelAt(steep, 100, 0)[3], 0);
  EXPECT_EQ(pixelAt(steep, 225, 0)[3], 255);
  for (double angle : {45.0001, -1.0, std::nan("")}) {
    driver.set("inputSkewAngle", Value(angle));
    EXPECT_TRUE(transparent(render(driver))) << angle;
  }
}

TEST(ShapesTest, SkewRunIsTruncatedWithoutOutline) {
  PatchDriver driver(std::make_unique<QVASkewedRectanglePlugIn>());
  driver.set("inputDrawOutline", Value(false));
  driver.set("inputHeight", Value(std::uint32_t{100}));
  // H·tanθ = 53.6: the top-left corner lies at x = 53, not 54.
  driver.set("inputSkewAngle", Value(std::atan(0.536) * 180 / M_PI));
  const auto pixels = render(driver);
  EXPECT_GT(pixelAt(pixels, 53, 0)[3], 200);
  EXPECT_EQ(pixelAt(pixels, 51, 0)[3], 0);
}

TEST(ShapesTest, RowLengthsAndExtremeSizes) {
  PatchDriver driver(std::make_unique<QVARoundedRectPlugIn>());
  for (const auto& [width, rowBytes] : {std::pair{1u, 16u}, {4u, 32u}, {5u, 32u}, {0u, 16u}}) {
    driver.set("inputWidth", Value(width));
    const auto pixels = render(driver);
    EXPECT_EQ(pixels.width, static_cast<int>(width));
    EXPECT_EQ(pixels.rowBytes, rowBytes) << width;
  }
  // Wider than the rasteriser's surfaces: drawn in tiles, right to the far edge.
  driver.set("inputWidth", Value(std::uint32_t{100000}));
  driver.set("inputHeight", Value(std::uint32_t{8}));
  driver.set("inputCornerRadiusX", Value(std::uint32_t{0}));
  const auto wide = render(driver);
  ASSERT_EQ(wide.width, 100000);
  EXPECT_EQ(pixelAt(wide, 99990, 4), (Pixel{0, 0, 255, 255}));
  EXPECT_EQ(pixelAt(wide, 20000, 4), (Pixel{0, 0, 255, 255}));
  // Beyond what memory allows: no image and a line in the log, no crash.
  driver.set("inputHeight", Value(std::uint32_t{100000}));
  EXPECT_TRUE(driver.frame(1));
  EXPECT_TRUE(driver.output("outputImage").isNone());
  ASSERT_FALSE(driver.processLog().empty());
  EXPECT_NE(driver.processLog().back().find("100000x100000"), std::string::npos);
}

}  // namespace
}  // namespace qva
