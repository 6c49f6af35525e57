// The scroller's pixels: where the strip lands at a time, tile by tile, in the host's GL context.
#include <gtest/gtest.h>

#include <filesystem>

#include "ScrollerTestSupport.h"
#include "foundation/image/ImageDecoder.h"
#include "host/CompositionGraph.h"
#include "host/DriveSession.h"
#include "host/FrameRenderer.h"
#include "host/HostBillboard.h"
#include "host/HostPatches.h"
#include "patches/AllPatches.h"
#include "support/CompositionFrames.h"
#include "support/DriveScript.h"
#include "support/GLTest.h"
#include "support/PatchExecution.h"
#include "support/PixelProbe.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

constexpr int kWidth = 64;
constexpr int kHeight = 20;
// Eight pixels a second: frame times of whole eighths land on whole pixels exactly.
constexpr double kSpeed = 8;

// Alpha of each pixel of one row.
std::vector<int> alphaRow(const PixelBufferView& pixels, int y) {
  std::vector<int> row;
  for (int x = 0; x < pixels.width; ++x) {
    row.push_back(pixels.bytes[static_cast<std::size_t>(y) * pixels.rowBytes + x * 4 + 3]);
  }
  return row;
}

// A row that is opaque exactly from column `from` (inclusive) to `to` (exclusive), clipped to the image.
std::vector<int> expectedRow(int from, int to, int width = kWidth) {
  std::vector<int> row(width, 0);
  for (int x = std::max(from, 0); x < std::min(to, width); ++x) {
    row[x] = 255;
  }
  return row;
}

// Opaque runs in a row: how many separate pieces of ink it holds.
int inkRuns(const std::vector<int>& row) {
  int runs = 0;
  for (std::size_t x = 0; x < row.size(); ++x) {
    runs += row[x] != 0 && (x == 0 || row[x - 1] == 0) ? 1 : 0;
  }
  return runs;
}

// A strip of pictures: the separator picture (10 × 10, its left `ink` columns opaque) before one empty
// string, so that each pass is 10 pixels long, shown once: in Loop mode with one loop, which unlike Once
// mode draws again after a reset. Top alignment places the picture on rows 5 to 14.
class TextScrollerRenderTest : public GLTest {
 protected:
  void SetUp() override {
    GLTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    driver_ = std::make_unique<PatchDriver>(std::make_unique<TextScrollerPlugIn>());
    driver_->context().setGLContext(gl_.get());
    writeBlock((folder_ / "block.png").string(), 10, 10, 10);
    writeBlock((folder_ / "half.png").string(), 10, 10, 5);
    set("inputWidth", Value(std::uint32_t{kWidth}));
    set("inputHeight", Value(std::uint32_t{kHeight}));
    set("inputSpeed", Value(kSpeed));
    set("inputStrings", stringArray({""}));
    set("inputSeparatorFirst", Value(true));
    set("inputRepeatMode", Value(std::uint32_t{1}));
    set("inputMaximumLoops", Value(std::uint32_t{1}));
    set("inputVerticalAlignment", Value(std::uint32_t{0}));
    set("inputSeparatorImage", Value((folder_ / "block.png").string()));
  }
  void TearDown() override { driver_.reset(); }

  void set(const std::string& key, const Value& value) { driver_->set(key, value); }
  TextScrollerPlugIn& scroller() { return scrollerOf(*driver_); }
  // The output image's pixels after a frame at the time that puts the strip at pixel p.
  PixelBufferView frameAt(double p) {
    EXPECT_TRUE(driver_->frame(p / kSpeed));
    const ImageRef image = driver_->output("outputImage").imageValue();
    EXPECT_TRUE(image);
    const auto pixels = gl_->pixelsForImage(*image);
    EXPECT_TRUE(pixels);
    return pixels.value_or(PixelBufferView{});
  }
  std::vector<int> rowAt(double p, int y = 10) { return alphaRow(frameAt(p), y); }

  TemporaryFolder folder_{"scroller-render"};
  std::unique_ptr<PatchDriver> driver_;
};

TEST_F(TextScrollerRenderTest, StripLandsWhereTheSpeedPutsIt) {
  // Right to left the strip enters at the right edge: strip x s shows at image x (width - p + s).
  for (int p : {0, 5, 30, 63, 64, 70, 73, 74, 200}) {
    const PixelBufferView pixels = frameAt(p);
    for (int y = 0; y < kHeight; ++y) {
      const bool inked = y >= 5 && y < 15;
      EXPECT_EQ(alphaRow(pixels, y), inked ? expectedRow(kWidth - p, kWidth - p + 10) : expectedRow(0, 0))
          << "right to left at " << p << ", row " << y;
    }
  }
  EXPECT_EQ(scroller().renderedTileCount(), 3u);

  // Left to right it enters at the left edge: the picture's right edge is at x = p.
  set("inputScrollingDirection", Value(std::uint32_t{1}));
  set("inputResetMode", Value(std::uint32_t{1}));
  set("inputRTFStyle", Value(""));
  for (int p : {0, 5, 30, 63, 64, 70, 73, 74}) {
    EXPECT_EQ(rowAt(200 + p), expectedRow(p - 10, p)) << "left to right at " << p;
  }
}

TEST_F(TextScrollerRenderTest, WholePixelStepsAtFrameTimesThatAreNotExact) {
  // At 200 pixels a second and 50 frames a second, frame 29 is at 29/50 s, whose product with the speed
  // falls a hair short of 116 in binary.
  set("inputWidth", Value(std::uint32_t{128}));
  set("inputSpeed", Value(200.0));
  for (int frame = 0; frame < 32; ++frame) {
    ASSERT_TRUE(driver_->frame(frame / 50.0));
    const auto pixels = gl_->pixelsForImage(*driver_->output("outputImage").imageValue());
    EXPECT_EQ(alphaRow(*pixels, 10), expectedRow(128 - 4 * frame, 138 - 4 * frame, 128)) << frame;
  }
}

TEST_F(TextScrollerRenderTest, SpeedChangesAndTimeZero) {
  EXPECT_EQ(rowAt(40), expectedRow(24, 34));
  // A new speed applies to the whole time since the reset, so the strip jumps.
  set("inputSpeed", Value(kSpeed / 2));
  EXPECT_EQ(rowAt(40), expectedRow(44, 54));
  set("inputSpeed", Value(kSpeed));
  EXPECT_EQ(rowAt(50), expectedRow(14, 24));
  // Time 0 with no change of input starts the strip again.
  EXPECT_EQ(rowAt(0), expectedRow(0, 0));
  EXPECT_EQ(rowAt(20), expectedRow(44, 54));
}

TEST_F(TextScrollerRenderTest, RestartBeginsAtTheRightEdgeAndContinueRunsOn) {
  set("inputMaximumLoops", Value(std::uint32_t{0}));
  set("inputSeparatorImage", Value((folder_ / "half.png").string()));
  const auto full = rowAt(64);
  EXPECT_EQ(inkRuns(full), 7);
  // Continue: new strings, same place; the tiles already drawn stay.
  set("inputStrings", stringArray({"", "", ""}));
  EXPECT_EQ(rowAt(64.5), full);
  // Restart: the strip enters from the right edge again.
  set("inputResetMode", Value(std::uint32_t{1}));
  set("inputStrings", stringArray({""}));
  EXPECT_EQ(rowAt(68), expectedRow(0, 0));
  EXPECT_EQ(rowAt(68 + 3), expectedRow(kWidth - 3, kWidth));
}

TEST_F(TextScrollerRenderTest, LoopsAndOnce) {
  set("inputSeparatorImage", Value((folder_ / "half.png").string()));
  set("inputRepeatMode", Value(std::uint32_t{0}));
  // Once: one pass, then "Finished" and empty tiles.
  EXPECT_EQ(inkRuns(rowAt(64)), 1);
  EXPECT_TRUE(driver_->boolean("outputFinished"));
  EXPECT_EQ(inkRuns(rowAt(128)), 0);
  // A reset leaves "Finished" as it is, so the strip stays away until it is rebuilt.
  EXPECT_TRUE(driver_->frame(0));
  EXPECT_EQ(inkRuns(rowAt(64)), 0);
  EXPECT_TRUE(driver_->boolean("outputFinished"));

  // A rebuild clears "Finished".
  set("inputRepeatMode", Value(std::uint32_t{1}));
  EXPECT_TRUE(driver_->frame(0));
  EXPECT_FALSE(driver_->boolean("outputFinished"));
  // Maximum Loops 0 has no limit: passes every 10 pixels, 7 of them touching each tile.
  const int passesPerTile[] = {7, 1, 2};
  for (std::uint32_t loops : {0u, 1u, 2u}) {
    set("inputMaximumLoops", Value(loops));
    // Time 0 starts the strip again.
    EXPECT_TRUE(driver_->frame(0));
    EXPECT_EQ(inkRuns(rowAt(64)), passesPerTile[loops]) << loops;
    EXPECT_EQ(inkRuns(rowAt(128)), loops == 0 ? 7 : 0) << loops;
  }
}

TEST_F(TextScrollerRenderTest, OneTilePerBoundaryCrossed) {
  std::vector<std::string> items;
  for (int i = 0; i < 10000; ++i) {
    items.push_back("Item " + std::to_string(i));
  }
  set("inputStrings", Value(stringArray(items)));
  set("inputSeparatorImage", Value(""));
  set("inputWidth", Value(std::uint32_t{200}));
  set("inputHeight", Value(std::uint32_t{50}));
  // A pixel a frame over five tiles renders each tile once, when its left edge comes into view.
  for (int p = 0; p <= 1000; ++p) {
    ASSERT_TRUE(driver_->frame(p / kSpeed));
    ASSERT_EQ(scroller().renderedTileCount(), static_cast<std::uint64_t>(p / 200 + 1)) << p;
    // Only the pieces the latest tile drew keep their layouts.
    ASSERT_LT(scroller().laidOutPieceCount(), 20u);
  }
  // A jump over several tiles still renders one tile per frame.
  ASSERT_TRUE(driver_->frame(3000 / kSpeed));
  EXPECT_EQ(scroller().renderedTileCount(), 7u);
  ASSERT_TRUE(driver_->frame(3000 / kSpeed));
  EXPECT_EQ(scroller().renderedTileCount(), 8u);
}

TEST_F(TextScrollerRenderTest, TileBoundariesLeaveNoSeam) {
  // Text crossing from one tile into the next looks the same as text drawn in one wide tile.
  const Value strings = stringArray({"Crawling news text", "crosses tiles"});
  const auto crawl = [&](std::uint32_t width, double p) {
    PatchDriver driver(std::make_unique<TextScrollerPlugIn>());
    driver.context().setGLContext(gl_.get());
    driver.set("inputWidth", Value(width));
    driver.set("inputHeight", Value(std::uint32_t{60}));
    driver.set("inputSpeed", Value(kSpeed));
    driver.set("inputStrings", strings);
    for (double at = 0; at <= p; at += width / 2.0) {
      EXPECT_TRUE(driver.frame(at / kSpeed));
    }
    EXPECT_TRUE(driver.frame(p / kSpeed));
    const auto pixels = gl_->pixelsForImage(*driver.output("outputImage").imageValue());
    return packedBytes(*pixels, std::min(pixels->width, 200));
  };
  int inked = 0;
  // Strip x 50 to 250 in the first 200 columns: through tiles 0 and 1 of 200, or tile 0 of 1000.
  for (double p : {250.0, 283.0, 399.0}) {
    const auto tiled = crawl(200, p);
    EXPECT_EQ(tiled, crawl(1000, p + 800)) << p;
    inked +=
        static_cast<int>(std::count_if(tiled.begin(), tiled.end(), [](std::uint8_t b) { return b != 0; }));
  }
  EXPECT_GT(inked, 1000);
}

TEST_F(TextScrollerRenderTest, StopDetachesTheImage) {
  rowAt(30);
  const ImageRef image = driver_->output("outputImage").imageValue();
  ASSERT_TRUE(image->canRender());
  driver_->stop();
  EXPECT_FALSE(image->canRender());
  EXPECT_EQ(image->width(), 0);
  // Started again, it makes its tiles anew.
  EXPECT_EQ(rowAt(0), expectedRow(0, 0));
  EXPECT_EQ(rowAt(30), expectedRow(34, 44));
}

TEST_F(TextScrollerRenderTest, PositionsThroughTheDrive) {
  DriveOptions options;
  options.scriptFolder = folder_.path().string();
  options.imagesFolder = (folder_ / "images").string();
  const auto lines = driveScript(PropertyList::parse(R"({
    "class": "TextScrollerPlugIn", "context": {"gl": true, "viewport": [64, 36],
                                              "compositionPath": ")" +
                                                     (folder_ / "t.qvc").string() + R"("},
    "steps": [
      {"time": 0, "inputs": {"inputWidth": 64, "inputHeight": 20, "inputSpeed": 8, "inputStrings": [""],
                             "inputSeparatorFirst": true, "inputVerticalAlignment": 0,
                             "inputSeparatorImage": "block.png"}},
      {"time": 2.5},
      {"time": 9},
      {"time": 9, "inputs": {"inputScrollingDirection": 1, "inputResetMode": 1, "inputRTFStyle": ""}},
      {"time": 11.5}]})"),
                                 bundledPatches(), options);
  ASSERT_EQ(lines.size(), 5u);
  const int expected[][2] = {{0, 0}, {44, 54}, {-8, 2}, {0, 0}, {10, 20}};
  for (std::size_t step = 0; step < lines.size(); ++step) {
    const PropertyList& image = lines[step]["outputs"]["outputImage"]["image"];
    ASSERT_TRUE(image.contains("file")) << lines[step].dump();
    const auto decoded = ImageDecoder::decodeFile(image["file"].get<std::string>());
    ASSERT_TRUE(decoded.bitmap);
    EXPECT_EQ(alphaRow(decoded.bitmap->view(), 10), expectedRow(expected[step][0], expected[step][1]))
        << step;
  }
}

// Shown pixel for pixel, the crawl draws itself straight onto the canvas: in either direction, across
// the tiles' seam and with each blending, the frame is the one its texture drawn there gives.
TEST(TextScrollerCanvasTest, DrawnInPlaceAsItsTextureWouldBe) {
  auto creation = Renderer::create(96, 80);
  if (!creation.renderer) {
    GTEST_SKIP() << creation.error;
  }
  Renderer& renderer = *creation.renderer;
  PatchDriver driver(std::make_unique<TextScrollerPlugIn>());
  ExecutionContext& context = driver.context();
  context.setGLContext(&renderer.gl());
  driver.set("inputWidth", Value(std::uint32_t{kWidth}));
  driver.set("inputHeight", Value(std::uint32_t{60}));
  driver.set("inputSpeed", Value(kSpeed));
  driver.set("inputStrings", stringArray({"Crawling news text", "crosses tiles"}));
  HostBillboard billboard;
  auto frame = Bitmap::allocate(96, 80, 96 * 4);
  const auto frameShowing = [&](const ImageRef& image) {
    renderer.beginFrame(context, Color{0.2, 0.4, 0.6, 0.5});
    billboard.setInputValue("inputImage", Value(image));
    executeOnce(billboard, context);
    renderer.readFrame(frame->bytes(), frame->rowBytes());
    return std::vector<std::uint8_t>(frame->bytes(), frame->bytes() + 96 * 4 * 80);
  };
  int inked = 0;
  for (const std::uint32_t direction : {0u, 1u}) {
    driver.set("inputScrollingDirection", Value(direction));
    for (const double p : {0.0, 30.0, 70.0, 101.0}) {
      ASSERT_TRUE(driver.frame(p / kSpeed));
      const ImageRef image = driver.output("outputImage").imageValue();
      for (const std::uint32_t blending : {0u, 1u, 2u}) {
        billboard.setInputValue("inputBlending", Value(blending));
        const auto inPlace = frameShowing(image);
        EXPECT_EQ(image->convertedRepresentation(), nullptr);
        const auto texture = renderer.gl().textureForImage(*image, TextureTarget::Texture2D);
        ASSERT_TRUE(texture);
        EXPECT_EQ(inPlace, frameShowing(std::make_shared<TextureImage>(*texture, nullptr)))
            << "direction " << direction << ", pixel " << p << ", blending " << blending;
        image->setConvertedRepresentation(nullptr);
        inked += static_cast<int>(
            std::count_if(inPlace.begin(), inPlace.end(), [](std::uint8_t b) { return b > 200; }));
      }
    }
  }
  EXPECT_GT(inked, 500);
}

TEST(TickerExampleTest, HeadlinesCrawlAlongTheBar) {
  auto creation = Renderer::create(1920, 1080);
  if (!creation.renderer) {
    GTEST_SKIP() << creation.error;
  }
  CompositionFrames ticker(*creation.renderer, QVA_SOURCE_DIR "/examples/ticker.qvc");
  // At 200 pixels a second the strip has come 800 pixels in from the right edge after 4 seconds.
  for (const long long index : {0, 200}) {
    ASSERT_EQ(ticker.render(index), "");
  }
  const Bitmap& frame = ticker.frame();
  int leftmost = 1920;
  int lettering = 0;
  for (int y = 940; y < 1040; ++y) {
    for (int x = 0; x < 1920; ++x) {
      const std::uint8_t* pixel = frame.row(y) + x * 4;
      if (pixel[0] > 200 && pixel[1] > 200 && pixel[2] > 200) {
        leftmost = std::min(leftmost, x);
        ++lettering;
      }
    }
  }
  EXPECT_GE(leftmost, 1120);
  EXPECT_LT(leftmost, 1130);
  EXPECT_GT(lettering, 2000);
}

}  // namespace
}  // namespace qva
