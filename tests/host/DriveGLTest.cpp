#include <gtest/gtest.h>

#include "host/DriveImages.h"
#include "support/GLDriveTest.h"

namespace qva {
namespace {

// Scripts that draw, with files named relative to the test data.
class DriveGLTest : public GLDriveTest {
 protected:
  std::vector<PropertyList> drive(const std::string& script) {
    return GLDriveTest::drive(PropertyList::parse(script), QVA_TEST_DATA_DIR);
  }

  // Whether the pixels inside a rectangle of the canvas (left, top, right and bottom columns and rows
  // included) are all of one colour, the rows and columns just outside of another.
  static void expectRectangle(const Bitmap& bitmap, int left, int top, int right, int bottom,
                              std::array<int, 4> inside, std::array<int, 4> outside) {
    for (int y = top; y <= bottom; ++y) {
      EXPECT_EQ(pixel(bitmap, left, y), inside) << left << "," << y;
      EXPECT_EQ(pixel(bitmap, right, y), inside) << right << "," << y;
      EXPECT_EQ(pixel(bitmap, left - 2, y), outside) << left - 2 << "," << y;
      EXPECT_EQ(pixel(bitmap, right + 2, y), outside) << right + 2 << "," << y;
    }
    for (int x = left; x <= right; ++x) {
      EXPECT_EQ(pixel(bitmap, x, top - 2), outside) << x << "," << top - 2;
      EXPECT_EQ(pixel(bitmap, x, bottom + 2), outside) << x << "," << bottom + 2;
    }
  }
};

// `qva drive` with "gl": true: patches get the GL context, images that only exist as textures are read
// back for their digest, and --images writes them as PNG.
TEST_F(DriveGLTest, TextureImagesAreReadBackAndWritten) {
  const auto lines = drive(R"({
    "class": "QVADelayPlugIn", "context": {"gl": true, "viewport": [64, 36]}, "settings": {"typeIndex": 5},
    "steps": [{"time": 0, "inputs": {"inputDelay": 0, "inputValue": {"imageFile": "image/pattern.png"}}}]})");
  ASSERT_EQ(lines.size(), 1u);
  const PropertyList& image = lines[0]["outputs"]["outputValue"]["image"];
  ASSERT_TRUE(image.is_object()) << lines[0].dump();
  EXPECT_EQ(image["width"], 5);
  // The texture round trip keeps every pixel of the decoded file.
  const auto decoded = ImageDecoder::decodeFile(std::string(QVA_TEST_DATA_DIR) + "/image/pattern.png");
  ASSERT_TRUE(decoded.bitmap);
  EXPECT_EQ(image["sha256"], DriveImages::visibleBytesDigest(decoded.bitmap->view()));
  ASSERT_TRUE(image.contains("file"));
  EXPECT_TRUE(std::filesystem::exists(image["file"].get<std::string>()));
}

constexpr std::array<int, 4> kRed = {0, 0, 255, 255};
constexpr std::array<int, 4> kBlue = {255, 0, 0, 255};
constexpr std::array<int, 4> kClear = {0, 0, 0, 0};

// A sprite of 0.5 × 0.25 units in a 64 × 36 canvas over the default bounds (32 pixels a unit): centred
// on (0.5, 0.25) it covers columns 40 to 55 and rows 6 to 13, on (-0.5, -0.25) columns 8 to 23 and
// rows 22 to 29.
TEST_F(DriveGLTest, SpritesDrawIntoACanvasKeptFromFrameToFrame) {
  const auto lines = drive(R"({
    "class": "QVATexturedSquarePlugIn", "context": {"gl": true, "viewport": [64, 36]},
    "steps": [
      {"time": 0, "clear": [0, 0, 1, 1], "canvas": true,
       "inputs": {"inputImage": {"solid": [1, 0, 0, 1], "width": 16, "height": 16}, "inputColor": [1, 1, 1, 1],
                  "inputX": 0.5, "inputY": 0.25, "inputWidth": 0.5, "inputHeight": 0.25,
                  "inputInterlaced": false, "inputMipmapping": false}},
      {"time": 1, "inputs": {"inputX": -0.5, "inputY": -0.25}, "canvas": true},
      {"time": 2, "clear": [0, 0, 0, 0], "canvas": true},
      {"time": 3}]})");
  ASSERT_EQ(lines.size(), 4u);
  ASSERT_EQ(lines[0]["result"], true) << lines[0].dump();
  const PropertyList& described = lines[0]["canvas"]["image"];
  EXPECT_EQ(described["width"], 64);
  EXPECT_EQ(described["height"], 36);
  EXPECT_TRUE(described["sha256"].is_string());
  EXPECT_FALSE(lines[3].contains("canvas"));

  const Bitmap first = image(lines[0].at("canvas"));
  expectRectangle(first, 40, 6, 55, 13, kRed, kBlue);
  EXPECT_EQ(pixel(first, 16, 26), kBlue);
  const Bitmap second = image(lines[1].at("canvas"));
  expectRectangle(second, 40, 6, 55, 13, kRed, kBlue);
  expectRectangle(second, 8, 22, 23, 29, kRed, kBlue);
  const Bitmap third = image(lines[2].at("canvas"));
  expectRectangle(third, 8, 22, 23, 29, kRed, kClear);
  EXPECT_EQ(pixel(third, 47, 10), kClear);
}

// Bounds (0, 0, 4, 2) over 64 × 32 pixels: 16 pixels a unit, y up from the bottom row.
TEST_F(DriveGLTest, TheBoundsAreMappedOverTheWholeCanvas) {
  const auto lines = drive(R"({
    "class": "QVATexturedSquarePlugIn", "context": {"gl": true, "viewport": [64, 32], "bounds": [0, 0, 4, 2]},
    "steps": [
      {"time": 0, "canvas": true,
       "inputs": {"inputImage": {"solid": [1, 0, 0, 1], "width": 8, "height": 8}, "inputColor": [1, 1, 1, 1],
                  "inputX": 1, "inputY": 0.5, "inputWidth": 1, "inputHeight": 0.5,
                  "inputInterlaced": false, "inputMipmapping": false}}]})");
  expectRectangle(image(lines[0].at("canvas")), 8, 20, 23, 27, kRed, kClear);
}

// The safe areas of bounds (-1, -0.75, 2, 1.5) on 200 × 150 pixels: action safe at x = -0.9 (column
// 10), title safe at x = -0.8 (column 20) and y = 0.6 (row 15).
TEST_F(DriveGLTest, SafeAreasAreDrawnOverWhatTheCanvasHolds) {
  const auto lines = drive(R"({
    "class": "QVASafeAreasPlugIn", "context": {"gl": true, "viewport": [200, 150], "bounds": [-1, -0.75, 2, 1.5]},
    "steps": [
      {"time": 0, "clear": [0, 0, 1, 0.5], "canvas": true},
      {"time": 1, "clear": [0, 0, 0, 0], "canvas": true,
       "inputs": {"inputShowActionSafeArea": false, "inputShowTitleSafeArea": false}}]})");
  const Bitmap shown = image(lines[0].at("canvas"));
  EXPECT_EQ(pixel(shown, 10, 75), kRed);
  EXPECT_EQ(pixel(shown, 189, 75), kRed);
  EXPECT_EQ(pixel(shown, 20, 75), (std::array<int, 4>{0, 255, 255, 255}));
  EXPECT_EQ(pixel(shown, 100, 15), (std::array<int, 4>{0, 255, 255, 255}));
  // The clear colour has straight alpha; the canvas holds it premultiplied.
  const auto background = pixel(shown, 100, 75);
  EXPECT_NEAR(background[0], 128, 1);
  EXPECT_EQ(background[2], 0);
  EXPECT_NEAR(background[3], 128, 1);
  const Bitmap hidden = image(lines[1].at("canvas"));
  for (const auto& [x, y] : {std::pair{10, 75}, {20, 75}, {100, 15}, {100, 75}}) {
    EXPECT_EQ(pixel(hidden, x, y), kClear) << x << "," << y;
  }
}

TEST(DriveImageFileTest, UndecodableImageFilesAreScriptErrors) {
  DriveOptions options;
  options.registry = &bundledPatches();
  options.scriptFolder = QVA_TEST_DATA_DIR;
  EXPECT_THROW(DriveSession::runScript(PropertyList::parse(R"({
    "class": "QVADelayPlugIn", "settings": {"typeIndex": 5},
    "steps": [{"time": 0, "inputs": {"inputValue": {"imageFile": "image/missing.png"}}}]})"),
                                       options),
               DriveError);
}

}  // namespace
}  // namespace qva
