#include <epoxy/gl.h>
#include <gtest/gtest.h>

#include <array>
#include <random>
#include <vector>

#include "foundation/dispatch/TaskQueue.h"
#include "foundation/image/Bitmap.h"
#include "host/HostBillboard.h"
#include "host/HostClear.h"
#include "host/Renderer.h"
#include "patches/render/QVATexturedSquarePlugIn.h"

namespace qva {
namespace {

using Pixel = std::array<int, 4>;  // B, G, R, A premultiplied

class RendererTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto creation = Renderer::create(64, 36);
    if (!creation.renderer) {
      GTEST_SKIP() << creation.error;
    }
    renderer_ = std::move(creation.renderer);
    frame_ = Bitmap::allocate(64, 36, 64 * 4);
  }

  Pixel pixel(int x, int y) {
    renderer_->readFrame(frame_->bytes(), frame_->rowBytes());
    const std::uint8_t* p = frame_->row(y) + x * 4;
    return {p[0], p[1], p[2], p[3]};
  }

  void run(Patch& patch) {
    patch.updateInputChangeFlags();
    EXPECT_TRUE(patch.execute(context_, 0, Arguments()));
    patch.finishExecution();
  }

  // A 4×2 image: left half opaque red, right half half-transparent blue (premultiplied).
  static ImageRef halves() {
    auto bitmap = Bitmap::allocate(4, 2, Bitmap::paddedRowBytes(4));
    for (int y = 0; y < 2; ++y) {
      for (int x = 0; x < 4; ++x) {
        const std::uint8_t red[4] = {0, 0, 255, 255};
        const std::uint8_t blue[4] = {128, 0, 0, 128};
        std::copy_n(x < 2 ? red : blue, 4, bitmap->row(y) + x * 4);
      }
    }
    return std::move(*bitmap).toImage();
  }

  // Pixels of every alpha from transparent to opaque, each colour channel at most its alpha.
  static ImageRef assorted(int width, int height, unsigned seed) {
    auto bitmap = Bitmap::allocate(width, height, Bitmap::paddedRowBytes(width));
    std::minstd_rand random(seed);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const auto alpha = static_cast<std::uint8_t>(x % 3 == 0 ? 255 * (y % 2) : random() % 256);
        std::uint8_t* pixel = bitmap->row(y) + x * 4;
        for (int channel = 0; channel < 3; ++channel) {
          pixel[channel] = static_cast<std::uint8_t>(random() % (alpha + 1));
        }
        pixel[3] = alpha;
      }
    }
    return std::move(*bitmap).toImage();
  }

  std::vector<std::uint8_t> frame() {
    renderer_->readFrame(frame_->bytes(), frame_->rowBytes());
    return {frame_->bytes(), frame_->bytes() + frame_->rowBytes() * 36};
  }

  TaskQueue queue_;
  ExecutionContext context_{queue_};
  std::unique_ptr<Renderer> renderer_;
  std::optional<Bitmap> frame_;
};

TEST_F(RendererTest, CanvasUnitsAndPremultipliedBackground) {
  const Rect bounds = renderer_->bounds();
  EXPECT_DOUBLE_EQ(bounds.x, -1);
  EXPECT_DOUBLE_EQ(bounds.y, -0.5625);
  EXPECT_DOUBLE_EQ(bounds.height, 1.125);
  renderer_->beginFrame(context_, Color{1, 0, 0, 0.5});
  EXPECT_EQ(context_.glContext(), &renderer_->gl());
  EXPECT_EQ(context_.viewport().width, 64);
  const Pixel background = pixel(10, 10);
  EXPECT_EQ(background[1], 0);
  EXPECT_NEAR(background[2], 128, 1);
  EXPECT_NEAR(background[3], 128, 1);
  // The next frame starts from its own background, whatever was drawn before.
  glColor4d(1, 1, 1, 1);
  glRectd(-1, -0.5625, 1, 0.5625);
  EXPECT_EQ(pixel(10, 10), (Pixel{255, 255, 255, 255}));
  renderer_->beginFrame(context_, Color{0, 0, 1, 1});
  EXPECT_EQ(pixel(10, 10), (Pixel{255, 0, 0, 255}));
  EXPECT_EQ(pixel(63, 35), (Pixel{255, 0, 0, 255}));
}

TEST_F(RendererTest, FramesReadBackTopRowFirst) {
  renderer_->beginFrame(context_, Color{0, 0, 0, 0});
  // A white band over the upper half of the canvas (y > 0 in composition units).
  glColor4d(1, 1, 1, 1);
  glRectd(-1, 0, 1, 0.5625);
  EXPECT_EQ(pixel(32, 2), (Pixel{255, 255, 255, 255}));
  EXPECT_EQ(pixel(32, 33), (Pixel{0, 0, 0, 0}));
}

TEST_F(RendererTest, BillboardShowsImagesUprightFilteredAndBlended) {
  renderer_->beginFrame(context_, Color{0, 1, 0, 1});
  HostBillboard billboard;
  billboard.setInputValue("inputImage", Value(halves()));
  billboard.setInputValue("inputWidth", Value(2.0));
  run(billboard);
  // Two units wide covers the canvas across and 1 unit (18 rows) high in the middle.
  EXPECT_EQ(pixel(8, 18), (Pixel{0, 0, 255, 255}));
  const Pixel over = pixel(56, 18);
  EXPECT_NEAR(over[0], 128, 2);
  EXPECT_NEAR(over[1], 127, 2);
  EXPECT_EQ(over[3], 255);
  EXPECT_EQ(pixel(32, 0), (Pixel{0, 255, 0, 255}));
  // Each texel covers 16 columns, filtered linearly: the columns either side of the red/blue edge blend.
  const Pixel left = pixel(31, 18);
  const Pixel right = pixel(32, 18);
  EXPECT_NEAR(left[2], 135, 2);
  EXPECT_NEAR(left[0], 60, 2);
  EXPECT_NEAR(right[2], 120, 2);
  EXPECT_NEAR(right[0], 68, 2);

  renderer_->beginFrame(context_, Color{0, 1, 0, 1});
  billboard.setInputValue("inputBlending", Value(std::uint32_t{0}));
  run(billboard);
  const Pixel replaced = pixel(56, 18);
  EXPECT_EQ(replaced[1], 0);
  EXPECT_NEAR(replaced[3], 128, 1);
}

TEST_F(RendererTest, BillboardTintMultipliesThePremultipliedImage) {
  HostBillboard billboard;
  billboard.setInputValue("inputImage", Value(halves()));
  billboard.setInputValue("inputWidth", Value(2.0));
  // A half-transparent yellow tint: red stays, blue goes, and everything is half as opaque.
  billboard.setInputValue("inputColor", Value(Color{1, 1, 0, 0.5}));
  renderer_->beginFrame(context_, Color{0, 0, 0, 0});
  run(billboard);
  const Pixel red = pixel(8, 18);
  EXPECT_NEAR(red[2], 128, 1);
  EXPECT_NEAR(red[3], 128, 1);
  const Pixel blue = pixel(56, 18);
  EXPECT_EQ(blue[0], 0);
  EXPECT_NEAR(blue[3], 64, 1);
  // White leaves the image exactly as it is.
  billboard.setInputValue("inputColor", Value(Color{1, 1, 1, 1}));
  renderer_->beginFrame(context_, Color{0, 0, 0, 0});
  run(billboard);
  EXPECT_EQ(pixel(8, 18), (Pixel{0, 0, 255, 255}));
  EXPECT_EQ(pixel(56, 18), (Pixel{128, 0, 0, 128}));
}

TEST_F(RendererTest, BillboardOfWidthZeroIsPixelForPixel) {
  renderer_->beginFrame(context_, Color{0, 0, 0, 0});
  HostBillboard billboard;
  billboard.setInputValue("inputImage", Value(halves()));
  run(billboard);
  // 4 × 2 pixels around the centre (32, 18).
  EXPECT_EQ(pixel(30, 17)[2], 255);
  EXPECT_EQ(pixel(29, 17)[3], 0);
  EXPECT_EQ(pixel(30, 15)[3], 0);
  EXPECT_EQ(pixel(31, 18), (Pixel{0, 0, 255, 255}));
  EXPECT_EQ(pixel(32, 18), (Pixel{128, 0, 0, 128}));

  // Half a pixel to the right, the columns at the red/blue edge take half of each.
  renderer_->beginFrame(context_, Color{0, 0, 0, 0});
  billboard.setInputValue("inputX", Value(1.0 / 64));
  run(billboard);
  const Pixel edge = pixel(32, 18);
  EXPECT_NEAR(edge[2], 128, 1);
  EXPECT_NEAR(edge[0], 64, 1);
}

// An image that comes with a rectangle texture of its own is drawn from it, pixel for pixel alike.
TEST_F(RendererTest, BillboardDrawsImagesWithRectangleTexturesAlike) {
  const ImageRef image = halves();
  const auto texture = renderer_->gl().textureForImage(*image, TextureTarget::Rectangle);
  ASSERT_TRUE(texture);
  HostBillboard billboard;
  billboard.setInputValue("inputImage", Value(ImageRef(std::make_shared<TextureImage>(*texture, nullptr))));
  renderer_->beginFrame(context_, Color{0, 0, 0, 0});
  run(billboard);
  EXPECT_EQ(pixel(31, 18), (Pixel{0, 0, 255, 255}));
  EXPECT_EQ(pixel(32, 17), (Pixel{128, 0, 0, 128}));
  EXPECT_EQ(pixel(29, 17)[3], 0);
  billboard.setInputValue("inputColor", Value(Color{0, 0, 1, 0.5}));
  renderer_->beginFrame(context_, Color{0, 0, 0, 0});
  run(billboard);
  EXPECT_EQ(pixel(31, 18)[2], 0);
  EXPECT_NEAR(pixel(32, 17)[0], 64, 1);
}

// An image drawn on demand the way the text scroller's is: the two halves of a texture, swapped, as two
// textured quads that cover it once.
class SwappedHalvesImage final : public Image {
 public:
  explicit SwappedHalvesImage(const TextureView& texture) : texture_(texture) {}
  int width() const override { return texture_.width; }
  int height() const override { return texture_.height; }
  std::optional<PixelBufferView> pixelBuffer() const override { return std::nullopt; }
  bool canRender() const override { return true; }
  bool rendersEveryPixelOnce() const override { return true; }
  bool render(GLContext& context) const override {
    const unsigned program = context.texturingProgram(texture_.target, false);
    glUseProgram(program);
    glUniform1i(glGetUniformLocation(program, "image"), 0);
    GLContext::bindTexture(texture_, 0, true);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glBegin(GL_QUADS);
    for (const double left : {-1.0, 0.0}) {
      const double from = left < 0 ? 0.5 : 0;
      glTexCoord2d(from, 0);
      glVertex2d(left, -1);
      glTexCoord2d(from + 0.5, 0);
      glVertex2d(left + 1, -1);
      glTexCoord2d(from + 0.5, 1);
      glVertex2d(left + 1, 1);
      glTexCoord2d(from, 1);
      glVertex2d(left, 1);
    }
    glEnd();
    GLContext::unbindTexture(texture_, 0);
    glUseProgram(0);
    return program != 0;
  }

 private:
  TextureView texture_;
};

// Shown pixel for pixel, an image that renders every pixel once draws itself straight onto the canvas,
// making no texture: over assorted pixels, with each blending, upright or turned round, the frame is
// the one its texture drawn there gives.
TEST_F(RendererTest, ImagesThatRenderEveryPixelOnceDrawInPlaceAsTheirTextureWould) {
  const ImageRef source = assorted(6, 4, 1);
  const auto texture = renderer_->gl().textureForImage(*source, TextureTarget::Texture2D);
  ASSERT_TRUE(texture);
  HostBillboard background;
  background.setInputValue("inputImage", Value(assorted(64, 36, 2)));
  background.setInputValue("inputBlending", Value(std::uint32_t{0}));
  HostBillboard billboard;
  // 34 to 40 across, 16 to 20 up.
  billboard.setInputValue("inputX", Value(5.0 / 32));
  const auto frameShowing = [&](const ImageRef& image) {
    renderer_->beginFrame(context_, Color{0, 0, 0, 0});
    run(background);
    billboard.setInputValue("inputImage", Value(image));
    run(billboard);
    return frame();
  };
  for (const std::uint32_t blending : {0u, 1u, 2u}) {
    for (const double width : {0.0, -6.0 / 32}) {
      billboard.setInputValue("inputBlending", Value(blending));
      billboard.setInputValue("inputWidth", Value(width));
      const auto drawn = std::make_shared<SwappedHalvesImage>(*texture);
      const auto inPlace = frameShowing(drawn);
      EXPECT_EQ(drawn->convertedRepresentation(), nullptr);
      const auto converted = renderer_->gl().textureForImage(*drawn, TextureTarget::Texture2D);
      ASSERT_TRUE(converted);
      EXPECT_EQ(inPlace, frameShowing(std::make_shared<TextureImage>(*converted, nullptr)))
          << "blending " << blending << ", width " << width;
    }
  }
  // Tinted, off whole pixels or further out than viewports reach, it is shown through its texture.
  const Color tints[] = {{1, 1, 1, 0.5}, {1, 1, 1, 1}, {1, 1, 1, 1}};
  const double xs[] = {0, 0.25 / 32, -100000.0 / 32};
  for (int i = 0; i < 3; ++i) {
    billboard.setInputValue("inputColor", Value(tints[i]));
    billboard.setInputValue("inputX", Value(xs[i]));
    const auto drawn = std::make_shared<SwappedHalvesImage>(*texture);
    frameShowing(drawn);
    EXPECT_NE(drawn->convertedRepresentation(), nullptr) << i;
  }
}

TEST_F(RendererTest, ClearPaintsItsColourAndWithoutGLFails) {
  renderer_->beginFrame(context_, Color{0, 0, 0, 0});
  HostClear clear;
  clear.setInputValue("inputColor", Value(Color{0, 0, 1, 1}));
  run(clear);
  EXPECT_EQ(pixel(0, 0), (Pixel{255, 0, 0, 255}));
  TaskQueue queue;
  ExecutionContext bare(queue);
  EXPECT_FALSE(clear.execute(bare, 0, Arguments()));
  HostBillboard billboard;
  EXPECT_FALSE(billboard.execute(bare, 0, Arguments()));
}

// A sprite testing depth gets a depth buffer that starts every frame cleared; the nearer of two
// overlapping sprites wins whichever draws last.
TEST_F(RendererTest, DepthIsThereForPatchesThatAskAndClearedEachFrame) {
  const auto solid = [](std::uint8_t blue, std::uint8_t red) {
    auto bitmap = Bitmap::allocate(4, 4, Bitmap::paddedRowBytes(4));
    for (int y = 0; y < 4; ++y) {
      for (int x = 0; x < 4; ++x) {
        const std::uint8_t colour[4] = {blue, 0, red, 255};
        std::copy_n(colour, 4, bitmap->row(y) + x * 4);
      }
    }
    return std::move(*bitmap).toImage();
  };
  QVATexturedSquarePlugIn near;
  QVATexturedSquarePlugIn far;
  for (auto* sprite : {&near, &far}) {
    sprite->setInputValue("inputWidth", Value(2.0));
    sprite->setInputValue("inputHeight", Value(2.0));
    sprite->setInputValue("inputColor", Value(Color{1, 1, 1, 1}));
    sprite->setInputValue("inputInterlaced", Value(false));
    sprite->setInputValue("inputDepth", Value(std::uint32_t{1}));
  }
  near.setInputValue("inputImage", Value(solid(0, 255)));
  near.setInputValue("inputZ", Value(0.5));
  far.setInputValue("inputImage", Value(solid(255, 0)));
  far.setInputValue("inputZ", Value(-0.5));
  renderer_->beginFrame(context_, Color{0, 0, 0, 0});
  run(near);
  run(far);
  EXPECT_EQ(pixel(32, 18), (Pixel{0, 0, 255, 255}));
  renderer_->beginFrame(context_, Color{0, 0, 0, 0});
  run(far);
  EXPECT_EQ(pixel(32, 18), (Pixel{255, 0, 0, 255}));
  near.stopExecution(context_);
  far.stopExecution(context_);
}

TEST_F(RendererTest, ImpossibleCanvasesAreErrors) {
  EXPECT_FALSE(Renderer::create(0, 10).renderer);
  const auto huge = Renderer::create(100000, 10);
  EXPECT_FALSE(huge.renderer);
  EXPECT_NE(huge.error.find("100000x10"), std::string::npos);
}

}  // namespace
}  // namespace qva
