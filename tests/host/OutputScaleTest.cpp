// An output size other than the canvas's: the same frame, scaled, with text drawn at the output's density.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "foundation/image/Bitmap.h"
#include "host/Renderer.h"
#include "patches/richtext/Image_With_RTF_StringPlugIn.h"
#include "patches/richtext/RTF_StylePlugIn.h"
#include "patches/scroller/TextScrollerString.h"
#include "support/CompositionFrames.h"
#include "support/PatchDriver.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

const std::string kLowerThird = std::string(QVA_SOURCE_DIR) + "/examples/lower-third.qvc";
// Three seconds in: every piece of the lower third has slid in and holds at its stop frame.
constexpr long long kLowerThirdOnAir = 75;

// A frame of the composition as `qva render --size WIDTHxHEIGHT` draws it; none where GL is missing.
std::optional<Bitmap> renderedFrame(const std::string& path, int width, int height, long long index) {
  auto creation = Renderer::create(width, height);
  if (!creation.renderer) {
    return std::nullopt;
  }
  CompositionFrames frames(*creation.renderer, path);
  // Frame by frame, as stop frames and animations go.
  for (long long frame = 0; frame <= index; ++frame) {
    EXPECT_EQ(frames.render(frame), "");
  }
  const PixelBufferView view = frames.frame().view();
  std::optional<Bitmap> copy = Bitmap::allocate(view.width, view.height, view.rowBytes);
  std::copy_n(view.bytes, view.rowBytes * static_cast<std::size_t>(view.height), copy->bytes());
  return copy;
}

// Each 2 × 2 block of pixels averaged into one: what a perfect half-size render would show.
Bitmap halved(const Bitmap& frame) {
  std::optional<Bitmap> half = Bitmap::allocate(frame.width() / 2, frame.height() / 2,
                                                static_cast<std::size_t>(frame.width() / 2) * 4);
  for (int y = 0; y < half->height(); ++y) {
    for (int x = 0; x < half->width(); ++x) {
      for (int channel = 0; channel < 4; ++channel) {
        int sum = 0;
        for (int dy = 0; dy < 2; ++dy) {
          for (int dx = 0; dx < 2; ++dx) {
            sum += frame.row(2 * y + dy)[(2 * x + dx) * 4 + channel];
          }
        }
        half->row(y)[x * 4 + channel] = static_cast<std::uint8_t>((sum + 2) / 4);
      }
    }
  }
  return std::move(*half);
}

// The rectangle of pixels with any alpha: left, top, right, bottom (exclusive); all 0 when empty.
std::array<int, 4> inkBounds(const Bitmap& frame) {
  std::array<int, 4> bounds{frame.width(), frame.height(), 0, 0};
  for (int y = 0; y < frame.height(); ++y) {
    for (int x = 0; x < frame.width(); ++x) {
      if (frame.row(y)[x * 4 + 3] != 0) {
        bounds = {std::min(bounds[0], x), std::min(bounds[1], y), std::max(bounds[2], x + 1),
                  std::max(bounds[3], y + 1)};
      }
    }
  }
  return bounds[2] == 0 ? std::array<int, 4>{} : bounds;
}

// How the pixels of two frames of one size differ, channel by channel.
struct Difference {
  double mean = 0;
  // The share of channel values further apart than a tenth of the range.
  double farShare = 0;
};

Difference difference(const Bitmap& a, const Bitmap& b) {
  long long total = 0;
  long long far = 0;
  for (int y = 0; y < a.height(); ++y) {
    for (int i = 0; i < a.width() * 4; ++i) {
      const int d = std::abs(a.row(y)[i] - b.row(y)[i]);
      total += d;
      far += d > 25 ? 1 : 0;
    }
  }
  const double count = 4.0 * a.width() * a.height();
  return {static_cast<double>(total) / count, static_cast<double>(far) / count};
}

// Edge pixels (alpha between a tenth and nine tenths) per solid pixel (alpha at least a half). Drawn
// at twice the pixels, a shape's edge grows twice and its area four times, so the share halves; the
// same frame enlarged keeps it (or raises it, when the enlargement interpolates).
double edgeShare(const Bitmap& frame) {
  long long edge = 0;
  long long solid = 0;
  for (int y = 0; y < frame.height(); ++y) {
    for (int x = 0; x < frame.width(); ++x) {
      const int alpha = frame.row(y)[x * 4 + 3];
      edge += alpha > 25 && alpha < 230 ? 1 : 0;
      solid += alpha >= 128 ? 1 : 0;
    }
  }
  return solid > 0 ? static_cast<double>(edge) / static_cast<double>(solid) : 0;
}

TEST(OutputScaleTest, LowerThirdAtHalfSizeIsItsCanvasFrameHalved) {
  const std::optional<Bitmap> full = renderedFrame(kLowerThird, 1920, 1080, kLowerThirdOnAir);
  if (!full) {
    GTEST_SKIP() << "no GL context";
  }
  const std::optional<Bitmap> half = renderedFrame(kLowerThird, 960, 540, kLowerThirdOnAir);
  ASSERT_TRUE(half);

  // Same layout: the panel and its text cover the same part of the frame, nothing cropped.
  const std::array<int, 4> fullInk = inkBounds(*full);
  const std::array<int, 4> halfInk = inkBounds(*half);
  ASSERT_GT(fullInk[2] - fullInk[0], 1000) << "the lower third is on air";
  for (int side = 0; side < 4; ++side) {
    EXPECT_NEAR(halfInk[side], fullInk[side] / 2.0, 1.0) << "side " << side;
  }

  // Same pixels, up to how text, shadows and shapes are rasterised at the lower density: edges fall on
  // other sub-pixel positions, which moves edge pixels by some levels (a mean of 0.30 here) and a few
  // of them by more than a tenth (0.35% of the values). The same frame moved by one pixel is 0.76 and
  // 0.64% apart; text drawn at the canvas's pixel size, twice as large, much further.
  const Difference halves = difference(*half, halved(*full));
  EXPECT_LT(halves.mean, 0.5);
  EXPECT_LT(halves.farShare, 0.005);
}

TEST(OutputScaleTest, AnOutputTallerThanTheCanvasShowsItWholeInItsMiddle) {
  const std::optional<Bitmap> canvas = renderedFrame(kLowerThird, 1920, 1080, kLowerThirdOnAir);
  if (!canvas) {
    GTEST_SKIP() << "no GL context";
  }
  // The canvas's width spans the output's: a square output adds room above and below.
  const std::optional<Bitmap> square = renderedFrame(kLowerThird, 1920, 1920, kLowerThirdOnAir);
  ASSERT_TRUE(square);
  constexpr int kMargin = (1920 - 1080) / 2;
  std::optional<Bitmap> middle = Bitmap::allocate(1920, 1080, canvas->rowBytes());
  for (int y = 0; y < 1080; ++y) {
    std::copy_n(square->row(kMargin + y), canvas->rowBytes(), middle->row(y));
  }
  EXPECT_LT(difference(*middle, *canvas).mean, 0.05);
  const std::array<int, 4> ink = inkBounds(*square);
  EXPECT_GE(ink[1], kMargin);
  EXPECT_LE(ink[3], kMargin + 1080);
}

// Plain text, outlined text with a hard shadow and a rounded panel on a transparent 480 × 270 canvas.
constexpr const char* kTextComposition = R"({
  "format": "qva-composition/1", "canvas": {"width": 480, "height": 270}, "fps": 25, "duration": 1,
  "background": [0, 0, 0, 0],
  "patches": [
    {"id": "panel", "class": "QVARoundedRectPlugIn",
     "inputs": {"inputWidth": 300, "inputHeight": 40, "inputCornerRadiusX": 12, "inputCornerRadiusY": 12,
                "inputFillColor": [1, 1, 1, 1], "inputDrawOutline": false}},
    {"id": "panelShow", "class": "HostBillboard", "layer": 1, "inputs": {"inputY": -0.3}},
    {"id": "style", "class": "RTF_StylePlugIn",
     "inputs": {"inputFontName": "DejaVu Sans", "inputFontSize": 40, "inputFontColor": [1, 1, 1, 1],
                "inputUseShadow": false}},
    {"id": "text", "class": "Image_With_RTF_StringPlugIn", "inputs": {"inputString": "Sharp Edges 42"}},
    {"id": "textShow", "class": "HostBillboard", "layer": 2, "inputs": {"inputY": 0.3}},
    {"id": "outlined", "class": "RTF_StylePlugIn",
     "inputs": {"inputFontName": "DejaVu Sans", "inputFontSize": 40, "inputFontColor": [1, 1, 1, 1],
                "inputStrokeWidth": -4, "inputStrokeColor": [0.2, 0.4, 1, 1], "inputUseShadow": true,
                "inputShadowBlurRadius": 0, "inputShadowOffsetX": 3, "inputShadowOffsetY": -3}},
    {"id": "outlinedText", "class": "Image_With_RTF_StringPlugIn", "inputs": {"inputString": "Outlined 42"}},
    {"id": "outlinedShow", "class": "HostBillboard", "layer": 3, "inputs": {"inputY": 0.02}}
  ],
  "connections": ["panel.outputImage -> panelShow.inputImage", "style.outputRTFStyle -> text.inputRTFStyle",
                  "text.outputImage -> textShow.inputImage", "outlined.outputRTFStyle -> outlinedText.inputRTFStyle",
                  "outlinedText.outputImage -> outlinedShow.inputImage"]
})";

TEST(OutputScaleTest, TextAtTwiceTheCanvasSizeIsDrawnAtTheOutputsDensity) {
  const TemporaryFolder folder("output-scale");
  const std::string path = (folder / "text.qvc").string();
  std::ofstream(path) << kTextComposition;
  const std::optional<Bitmap> single = renderedFrame(path, 480, 270, 0);
  if (!single) {
    GTEST_SKIP() << "no GL context";
  }
  const std::optional<Bitmap> doubled = renderedFrame(path, 960, 540, 0);
  ASSERT_TRUE(doubled);

  const std::array<int, 4> singleInk = inkBounds(*single);
  const std::array<int, 4> doubledInk = inkBounds(*doubled);
  ASSERT_GT(singleInk[2] - singleInk[0], 250);
  for (int side = 0; side < 4; ++side) {
    EXPECT_NEAR(doubledInk[side], 2.0 * singleInk[side], 2.0) << "side " << side;
  }
  // Sharper than the single-size frame enlarged, whose edge share is the single one's at best: edges
  // of one output pixel where an enlargement has two.
  EXPECT_LT(edgeShare(*doubled), 0.7 * edgeShare(*single));
  // And the same picture: halved, it is the single-size frame, with the differences in edge pixels of
  // the half-size comparison above (0.4 apart on average here).
  EXPECT_LT(difference(halved(*doubled), *single).mean, 1.0);
}

TEST(OutputScaleTest, TextImagesKeepTheirLogicalSizeAtAnyDensity) {
  PatchDriver style(std::make_unique<RTF_StylePlugIn>());
  style.set("inputFontSize", Value(30.0));
  ASSERT_TRUE(style.frame(0));
  const auto draw = [&](double scale) {
    PatchDriver text(std::make_unique<Image_With_RTF_StringPlugIn>());
    text.context().setViewport({1920, 1080});
    text.context().setBounds({-1, -0.5625, 2, 1.125});
    text.context().setOutputScale(scale);
    text.set("inputRTFStyle", style.output("outputRTFStyle"));
    text.set("inputString", Value(std::string("Logical pixels")));
    EXPECT_TRUE(text.frame(0));
    return std::tuple{text.output("outputImage").imageValue(), text.number("outputWidth"),
                      text.number("outputHeight")};
  };
  const auto [single, singleWidth, singleHeight] = draw(1);
  const auto [doubled, doubledWidth, doubledHeight] = draw(2);
  ASSERT_TRUE(single && doubled);
  // Units on the canvas stay; pixels double, and the image says so.
  EXPECT_EQ(doubledWidth, singleWidth);
  EXPECT_EQ(doubledHeight, singleHeight);
  EXPECT_EQ(doubled->width(), 2 * single->width());
  EXPECT_EQ(doubled->height(), 2 * single->height());
  EXPECT_EQ(single->pixelDensity(), 1);
  EXPECT_EQ(doubled->pixelDensity(), 2);
  EXPECT_EQ(doubled->logicalWidth(), single->width());
}

TEST(OutputScaleTest, TheScrollerCrawlsDenseImagesAtTheirLogicalSize) {
  // A 20 × 10 opaque picture drawn at twice the density: 10 × 5 logical pixels in the strip.
  std::optional<Bitmap> picture = Bitmap::allocate(20, 10, Bitmap::paddedRowBytes(20));
  for (int y = 0; y < 10; ++y) {
    std::fill_n(picture->row(y), 20 * 4, std::uint8_t{255});
  }
  const auto piece = TextScrollerString::textScrollerStringWithImage(std::move(*picture).toImage(2));
  EXPECT_EQ(piece->width(), 10);
  EXPECT_EQ(piece->height(), 5);
  std::optional<Bitmap> tile = Bitmap::allocate(40, 10, Bitmap::paddedRowBytes(40));
  std::fill_n(tile->bytes(), tile->rowBytes() * 10, std::uint8_t{0});
  piece->drawInRect(*tile, {0, 0, 40, 10}, 0, 0, 40, true);
  int opaqueColumns = 0;
  for (int x = 0; x < 40; ++x) {
    opaqueColumns += tile->row(5)[x * 4 + 3] == 255 ? 1 : 0;
  }
  EXPECT_EQ(opaqueColumns, 10);
}

}  // namespace
}  // namespace qva
