#include <epoxy/gl.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>

#include "RenderCanvas.h"
#include "patches/render/QVATexturedSquarePlugIn.h"
#include "support/PatchDriver.h"

namespace qva {
namespace {

using Texel = std::array<std::uint8_t, 4>;

// A buffer image whose premultiplied BGRA texels come from texel(x, y), row by row from the top.
ImageRef imageOf(int width, int height, const std::function<Texel(int, int)>& texel) {
  auto bitmap = Bitmap::allocate(width, height, Bitmap::paddedRowBytes(width));
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const Texel colour = texel(x, y);
      std::copy(colour.begin(), colour.end(), bitmap->row(y) + x * 4);
    }
  }
  return std::move(*bitmap).toImage();
}

// A buffer image of one colour per row.
ImageRef rowsImage(int width, const std::vector<Texel>& rows) {
  return imageOf(width, static_cast<int>(rows.size()), [&](int, int y) { return rows[y]; });
}

constexpr Texel red{0, 0, 255, 255};
constexpr Texel blue{255, 0, 0, 255};
constexpr Texel clear{0, 0, 0, 0};
constexpr Texel halfRed{0, 0, 128, 128};
// The same colours as read back from the canvas.
constexpr std::array<int, 4> kRed{0, 0, 255, 255};
constexpr std::array<int, 4> kBlue{255, 0, 0, 255};

class SpriteTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    canvas_ = RenderCanvas::create(8, 8, error);
    if (!canvas_) {
      GTEST_SKIP() << error;
    }
    driver_ = std::make_unique<PatchDriver>(std::make_unique<QVATexturedSquarePlugIn>());
    canvas_->begin(driver_->context());
    driver_->start();
    // Cover the whole 2 × 2 canvas, one texel per pixel, no filtering across lines, a progressive source.
    driver_->set("inputWidth", Value(2.0));
    driver_->set("inputHeight", Value(2.0));
    driver_->set("inputColor", Value(Color{1, 1, 1, 1}));
    driver_->set("inputMipmapping", Value(false));
    driver_->set("inputBlending", Value(std::uint32_t{1}));
    driver_->set("inputInterlaced", Value(false));
  }
  void TearDown() override {
    if (driver_) {
      driver_->stop();
    }
  }
  QVATexturedSquarePlugIn& sprite() { return static_cast<QVATexturedSquarePlugIn&>(driver_->patch()); }
  // Draws the next frame on a cleared canvas; answers what the frame answered.
  bool draw(const Arguments& arguments = Arguments()) {
    canvas_->begin(driver_->context());
    return driver_->frame(frame_++, arguments);
  }
  // Draws the next frame and gives all its pixels, row by row.
  std::vector<std::array<int, 4>> drawFrame() {
    EXPECT_TRUE(draw());
    std::vector<std::array<int, 4>> all;
    for (int y = 0; y < 8; ++y) {
      for (int x = 0; x < 8; ++x) {
        all.push_back(canvas_->pixel(x, y));
      }
    }
    return all;
  }

  std::unique_ptr<RenderCanvas> canvas_;
  std::unique_ptr<PatchDriver> driver_;
  int frame_ = 0;
};

TEST_F(SpriteTest, ClassAndPortOrder) {
  const PatchClass& c = QVATexturedSquarePlugIn::patchClass();
  EXPECT_EQ(c.name, "QVA Sprite");
  EXPECT_EQ(c.executionMode, ExecutionMode::Consumer);
  ASSERT_TRUE(c.sortedPropertyPortKeys);
  EXPECT_EQ(c.sortedPropertyPortKeys->size(), 18u);
  EXPECT_EQ(c.attributesForPropertyPortWithKey("inputBlending")->menuItems,
            (std::vector<std::string>{"Replace", "Over", "Add"}));
  EXPECT_GE(sprite().maxAnisotropy(), 1);
}

TEST_F(SpriteTest, WithoutImageDrawsNothingAndWithoutGLFails) {
  EXPECT_TRUE(driver_->frame(0));
  EXPECT_EQ(canvas_->pixel(4, 4)[3], 0);
  PatchDriver bare(std::make_unique<QVATexturedSquarePlugIn>());
  bare.set("inputImage", Value(rowsImage(2, {red})));
  EXPECT_FALSE(bare.frame(0));
}

// An image without pixels gives no texture: the quad is drawn in its colour alone.
TEST_F(SpriteTest, ImageWithoutTextureLeavesAPlainQuad) {
  auto empty = Bitmap::allocate(0, 4, 16);
  driver_->set("inputImage", Value(std::move(*empty).toImage()));
  driver_->set("inputColor", Value(Color{0, 1, 0, 1}));
  ASSERT_TRUE(driver_->frame(0));
  EXPECT_EQ(sprite().textureName(), 0u);
  EXPECT_EQ(canvas_->pixel(4, 4), (std::array<int, 4>{0, 255, 0, 255}));
}

TEST_F(SpriteTest, ProgressiveImageIsCopiedUpright) {
  driver_->set("inputImage", Value(rowsImage(8, {red, red, red, red, blue, blue, blue, blue})));
  ASSERT_TRUE(driver_->frame(0));
  EXPECT_EQ(canvas_->pixel(3, 1), kRed);
  EXPECT_EQ(canvas_->pixel(3, 6), kBlue);
  EXPECT_EQ(sprite().fboWidth(), 8u);
  EXPECT_FLOAT_EQ(sprite().aspectRatio(), 1.0f);
}

// A red and a blue texel stretched over 8 columns blend linearly between their centres, and the texture
// repeats, so the outer columns blend with the opposite edge.
TEST_F(SpriteTest, MagnifiedImageIsFilteredLinearly) {
  driver_->set("inputMipmapping", Value(true));
  driver_->set("inputImage", Value(imageOf(2, 1, [](int x, int) { return x == 0 ? red : blue; })));
  ASSERT_TRUE(driver_->frame(0));
  const int blueShare[8] = {96, 32, 32, 96, 159, 223, 223, 159};
  for (int x = 0; x < 8; ++x) {
    const auto pixel = canvas_->pixel(x, 4);
    EXPECT_NEAR(pixel[0], blueShare[x], 1) << x;
    EXPECT_NEAR(pixel[2], 255 - blueShare[x], 1) << x;
  }
}

TEST_F(SpriteTest, InterlacedSourceShowsOneFieldLineDoubled) {
  // Even lines red, odd lines blue: the even field (offset 0.75) takes the second line of each pair.
  driver_->set("inputInterlaced", Value(true));
  driver_->set("inputImage", Value(rowsImage(8, {red, blue, red, blue, red, blue, red, blue})));
  for (const bool even : {true, false}) {
    driver_->set("inputFieldEven", Value(even));
    ASSERT_TRUE(draw());
    for (int y : {1, 2, 5}) {
      EXPECT_EQ(canvas_->pixel(4, y), even ? kBlue : kRed) << y;
    }
  }
  // The host's field choice wins over the port, and inverting flips it.
  ASSERT_TRUE(
      draw(Arguments{{"interlaceField", 0}, {"invertFields", true}, {"opacity", 1.0}, {"alpha", 1.0}}));
  EXPECT_EQ(canvas_->pixel(4, 4), kBlue);
  ASSERT_TRUE(draw(Arguments{{"interlaceField", 0}, {"opacity", 1.0}, {"alpha", 1.0}}));
  EXPECT_EQ(canvas_->pixel(4, 4), kRed);
}

TEST_F(SpriteTest, MaskReplacesAlphaOnly) {
  driver_->set("inputImage", Value(rowsImage(8, std::vector(8, red))));
  driver_->set("inputMask", Value(rowsImage(8, {clear, clear, clear, clear, red, red, red, red})));
  ASSERT_TRUE(driver_->frame(0));
  EXPECT_EQ(canvas_->pixel(4, 1)[3], 0);
  EXPECT_EQ(canvas_->pixel(4, 1)[2], 0);
  EXPECT_EQ(canvas_->pixel(4, 6), kRed);
}

TEST_F(SpriteTest, PreparedTextureFollowsEveryChangeOfImageMaskAndMode) {
  const auto stripes = rowsImage(8, {red, blue, red, blue, red, blue, red, blue});
  const auto topHidden = rowsImage(8, {clear, clear, clear, clear, red, red, red, red});
  driver_->set("inputImage", Value(rowsImage(8, std::vector(8, red))));
  drawFrame();
  drawFrame();
  EXPECT_EQ(canvas_->pixel(4, 4), kRed);
  driver_->set("inputImage", Value(rowsImage(8, std::vector(8, blue))));
  drawFrame();
  EXPECT_EQ(canvas_->pixel(4, 4), kBlue);
  driver_->set("inputMask", Value(topHidden));
  drawFrame();
  EXPECT_EQ(canvas_->pixel(4, 1)[3], 0);
  driver_->set("inputMask", Value(ImageRef()));
  drawFrame();
  EXPECT_EQ(canvas_->pixel(4, 1), kBlue);
  // The same image read progressively, then as the odd field: lines alternate, then all red.
  driver_->set("inputImage", Value(stripes));
  drawFrame();
  EXPECT_NE(canvas_->pixel(4, 1), canvas_->pixel(4, 2));
  driver_->set("inputInterlaced", Value(true));
  driver_->set("inputFieldEven", Value(false));
  drawFrame();
  EXPECT_EQ(canvas_->pixel(4, 1), kRed);
  EXPECT_EQ(canvas_->pixel(4, 2), kRed);
}

TEST_F(SpriteTest, ReplaceDiscardsTheDestinationAndScalesByAlpha) {
  driver_->set("inputBlending", Value(std::uint32_t{0}));
  driver_->set("inputImage", Value(rowsImage(8, std::vector(8, halfRed))));
  canvas_->begin(driver_->context(), 0, 1, 0, 1);
  ASSERT_TRUE(driver_->frame(0));
  const auto pixel = canvas_->pixel(4, 4);
  EXPECT_EQ(pixel[1], 0);
  EXPECT_NEAR(pixel[2], 64, 1);
  EXPECT_NEAR(pixel[3], 64, 1);
}

TEST_F(SpriteTest, PerFrameArgumentsReplaceTheColour) {
  driver_->set("inputBlending", Value(std::uint32_t{2}));
  driver_->set("inputColor", Value(Color{0, 0, 0, 1}));
  driver_->set("inputImage", Value(rowsImage(8, std::vector(8, red))));
  ASSERT_TRUE(draw(Arguments{{"opacity", 1.0}, {"alpha", 1.0}}));
  EXPECT_EQ(canvas_->pixel(4, 4)[2], 255);
  ASSERT_TRUE(draw());
  EXPECT_EQ(canvas_->pixel(4, 4)[2], 0);
  // The colour is clamped as a vertex colour is: an alpha of 2 does not make half-covered red opaque.
  driver_->set("inputImage", Value(rowsImage(8, std::vector(8, halfRed))));
  ASSERT_TRUE(draw(Arguments{{"opacity", 1.0}, {"alpha", 2.0}}));
  EXPECT_NEAR(canvas_->pixel(4, 4)[2], 64, 1);
}

// GL samples with the magnifying filter wherever the level of detail is at most 0, whatever the
// minifying filter; the sprite then draws without mipmaps, and must give the same pixels.
TEST_F(SpriteTest, MipmapsServeOnlyWhereTheImageIsMinified) {
  // Red and blue texels alternate, so the second mipmap level is an even purple.
  driver_->set("inputImage",
               Value(imageOf(8, 8, [](int x, int y) { return (x + y) % 2 == 0 ? red : blue; })));
  const auto pixels = [&](bool mipmapping) {
    driver_->set("inputMipmapping", Value(mipmapping));
    return drawFrame();
  };
  struct View {
    double size;  // 2 shows the image at its own size
    double rotation;
    double bias;
  };
  const auto show = [&](const View& view) {
    driver_->set("inputWidth", Value(view.size));
    driver_->set("inputHeight", Value(view.size));
    driver_->set("inputRotZ", Value(view.rotation));
    driver_->set("inputLODbias", Value(view.bias));
  };
  // At its own size, larger, turned at its own size, and halved with a bias of a level back.
  for (const View& view : {View{2, 0, 0}, View{4, 0, 0}, View{2, 30, 0}, View{1, 0, -1}}) {
    show(view);
    EXPECT_EQ(pixels(true), pixels(false)) << view.size << " " << view.rotation << " " << view.bias;
  }
  // Slightly or well smaller, turned or not, or at its own size with a bias of a level.
  for (const View& view : {View{1.9, 0, 0}, View{1.5, 0, 0}, View{1.5, 30, 0}, View{2, 0, 1}}) {
    show(view);
    EXPECT_NE(pixels(true), pixels(false)) << view.size << " " << view.rotation << " " << view.bias;
  }
  // The biased level is the even purple.
  const auto purple = pixels(true)[27];
  EXPECT_NEAR(purple[0], 128, 2);
  EXPECT_NEAR(purple[2], 128, 2);
}

// A sprite that keeps its size draws its mipmaps baked from the second frame on (a cheaper path to the
// same filter); one that changes size draws them directly again, and is baked anew once it stays.
TEST_F(SpriteTest, SteadySpritesDrawTheSameFilterBaked) {
  std::uint32_t noise = 12345;
  driver_->set("inputImage", Value(imageOf(16, 16, [&](int, int) {
                 noise = noise * 1103515245u + 12345u;
                 return Texel{static_cast<std::uint8_t>(noise >> 8), static_cast<std::uint8_t>(noise >> 16),
                              static_cast<std::uint8_t>(noise >> 24), 255};
               })));
  driver_->set("inputMipmapping", Value(true));
  const auto close = [](const auto& a, const auto& b) {
    for (std::size_t i = 0; i < a.size(); ++i) {
      for (std::size_t c = 0; c < 4; ++c) {
        if (std::abs(a[i][c] - b[i][c]) > 2) {
          return false;
        }
      }
    }
    return true;
  };
  // The first frame after the texture is prepared again samples the mipmaps themselves.
  const auto directFrame = [&] {
    driver_->set("inputMipmapping", Value(false));
    drawFrame();
    driver_->set("inputMipmapping", Value(true));
    auto frame = drawFrame();
    EXPECT_FALSE(sprite().drewPrefiltered());
    return frame;
  };
  const auto bakedOnWindowRows = [&] {
    const PrefilteredTexture* bake = sprite().drewPrefiltered();
    return bake != nullptr && bake->rows().has_value();
  };
  // 16 texels on 12 pixels (more than the canvas shows), then on 3.2: levels of detail of 0.4 and 2.3.
  for (const double size : {3.0, 0.8}) {
    SCOPED_TRACE(size);
    driver_->set("inputWidth", Value(size));
    driver_->set("inputHeight", Value(size));
    driver_->set("inputX", Value(0.0));
    driver_->set("inputY", Value(0.0));
    const auto direct = directFrame();
    // At rest, and back after moving sideways, the sprite is baked on the window's rows.
    EXPECT_TRUE(close(direct, drawFrame()));
    EXPECT_TRUE(bakedOnWindowRows());
    driver_->set("inputX", Value(0.13));
    drawFrame();
    EXPECT_TRUE(bakedOnWindowRows());
    driver_->set("inputX", Value(0.0));
    EXPECT_TRUE(close(direct, drawFrame()));
    // Moving up, on the grid's rows.
    driver_->set("inputY", Value(0.1));
    const auto moved = drawFrame();
    EXPECT_TRUE(sprite().drewPrefiltered());
    EXPECT_FALSE(bakedOnWindowRows());
    EXPECT_TRUE(close(directFrame(), moved));
  }
  // The frame leaves the texture matrix as it found it.
  GLdouble textureMatrix[16];
  glGetDoublev(GL_TEXTURE_MATRIX, textureMatrix);
  EXPECT_EQ(textureMatrix[0], 1);
  EXPECT_EQ(textureMatrix[12], 0);
  const auto minimumLOD = [&] {
    GLfloat lod = 0;
    glBindTexture(GL_TEXTURE_2D, sprite().textureName());
    glGetTexParameterfv(GL_TEXTURE_2D, GL_TEXTURE_MIN_LOD, &lod);
    return lod;
  };
  // Endless and undefined widths draw without a GL error; an undefined one has no level of detail, so
  // GL's own clamps stay and nothing is baked.
  driver_->set("inputWidth", Value(std::numeric_limits<double>::infinity()));
  drawFrame();
  driver_->set("inputWidth", Value(std::nan("")));
  drawFrame();
  drawFrame();
  EXPECT_FALSE(sprite().drewPrefiltered());
  EXPECT_EQ(minimumLOD(), -1000);
  driver_->set("inputWidth", Value(0.8));
  // An anisotropic filter chooses its own level, so it is neither pinned nor baked.
  driver_->set("inputAnisotropy", Value(std::uint32_t{4}));
  drawFrame();
  drawFrame();
  EXPECT_FALSE(sprite().drewPrefiltered());
  EXPECT_EQ(minimumLOD(), -1000);
}

TEST_F(SpriteTest, ZeroWidthFollowsTheImageAspect) {
  driver_->set("inputWidth", Value(0.0));
  driver_->set("inputHeight", Value(0.0));
  driver_->set("inputImage", Value(rowsImage(16, std::vector(9, red))));
  ASSERT_TRUE(driver_->frame(0));
  EXPECT_NEAR(sprite().aspectRatio(), 16.0f / 9.0f, 1e-6);
  // 1.78 units wide and 1 high on a 2 × 2 canvas of 8 pixels: every column (pixel centres lie within
  // ±0.875), rows 2 to 5 only.
  EXPECT_EQ(canvas_->pixel(0, 4)[3], 255);
  EXPECT_EQ(canvas_->pixel(7, 4)[3], 255);
  EXPECT_EQ(canvas_->pixel(4, 1)[3], 0);
  EXPECT_EQ(canvas_->pixel(4, 2)[3], 255);
}

}  // namespace
}  // namespace qva
