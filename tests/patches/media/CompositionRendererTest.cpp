#include <epoxy/gl.h>
#include <gtest/gtest.h>

#include "foundation/providers/QVAOutputImageProvider.h"
#include "host/Renderer.h"
#include "patches/media/QVACompositionRendererImagePlugIn.h"
#include "patches/media/QVACompositionRendererPatchPlugIn.h"
#include "support/PatchDriver.h"
#include "support/PixelProbe.h"

namespace qva {
namespace {

// A 2 × 2 texture, as a playout host's video texture: red and green on the top row, blue and white
// below, the top row first.
GLuint makeTexture(GLenum target) {
  const std::uint8_t bgra[] = {0, 0, 255, 255, 0, 255, 0, 255, 255, 0, 0, 255, 255, 255, 255, 255};
  GLuint name = 0;
  glGenTextures(1, &name);
  glBindTexture(target, name);
  glTexParameteri(target, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
  glTexParameteri(target, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
  glTexParameteri(target, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
  glTexParameteri(target, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
  glTexImage2D(target, 0, GL_RGBA8, 2, 2, 0, GL_BGRA, GL_UNSIGNED_BYTE, bgra);
  glBindTexture(target, 0);
  return name;
}

Arguments videoArguments(GLuint texture, GLenum target) {
  return Arguments{{"texture", texture},      {"textureTarget", target}, {"textureWidth", 2.0},
                   {"textureHeight", 2.0},    {"opacity", 1.0},          {"alpha", 1.0},
                   {"glCoordPerYPixel", 0.0}, {"firstField", true}};
}

class CompositionRendererTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // A canvas of 8 × 8 pixels: composition units from -1 to 1 both ways, a quarter unit a pixel.
    auto creation = Renderer::create(8, 8);
    if (!creation.renderer) {
      GTEST_SKIP() << creation.error;
    }
    renderer_ = std::move(creation.renderer);
  }

  // Premultiplied B, G, R, A of the canvas pixel (x, y), (0, 0) at the top left.
  Pixel pixel(int x, int y) {
    std::uint8_t frame[8 * 8 * 4];
    renderer_->readFrame(frame, 8 * 4);
    return pixelAt(PixelBufferView{8, 8, 8 * 4, frame}, x, y);
  }

  std::unique_ptr<Renderer> renderer_;
};

TEST_F(CompositionRendererTest, ImageFollowsTheFirstFieldsTexture) {
  PatchDriver driver(std::make_unique<QVACompositionRendererImagePlugIn>());
  const GLuint texture = makeTexture(GL_TEXTURE_RECTANGLE);
  // An editor passes no arguments: nothing is published.
  EXPECT_FALSE(driver.afterFrame(0).output("outputImage").imageValue());

  driver.frame(0.04, videoArguments(texture, GL_TEXTURE_RECTANGLE));
  const ImageRef first = driver.output("outputImage").imageValue();
  ASSERT_TRUE(first);
  ASSERT_TRUE(first->texture());
  EXPECT_EQ(first->texture()->name, texture);
  EXPECT_EQ(first->texture()->target, TextureTarget::Rectangle);
  EXPECT_EQ(first->width(), 2);
  EXPECT_TRUE(first->texture()->flipped);
  const auto pixels = renderer_->gl().pixelsForImage(*first);
  ASSERT_TRUE(pixels);
  EXPECT_EQ(pixels->bytes[2], 255);  // red at the top left

  // The second field of the frame keeps the image.
  Arguments secondField = videoArguments(makeTexture(GL_TEXTURE_2D), GL_TEXTURE_2D);
  secondField["firstField"] = false;
  EXPECT_EQ(driver.afterFrame(0.06, secondField).output("outputImage").imageValue(), first);

  // A first field without a texture gives the transparent placeholder, not nothing.
  driver.frame(0.08, Arguments{{"firstField", true}});
  const ImageRef placeholder = driver.output("outputImage").imageValue();
  ASSERT_TRUE(placeholder);
  EXPECT_NE(dynamic_cast<const QVAOutputImageProvider*>(placeholder.get()), nullptr);
  EXPECT_EQ(placeholder->width(), 256);
  // Releasing the image leaves the host's texture alone.
  driver.frame(0.1, videoArguments(texture, GL_TEXTURE_RECTANGLE));
  EXPECT_TRUE(glIsTexture(texture));
}

class CompositionRendererPatchTest : public CompositionRendererTest {
 protected:
  void SetUp() override {
    CompositionRendererTest::SetUp();
    if (!renderer_) {
      return;
    }
    driver_.set("inputWidth", Value(2.0));
    driver_.set("inputHeight", Value(2.0));
    driver_.start();
  }
  void draw(const Arguments& arguments) {
    renderer_->beginFrame(driver_.context(), Color{0, 0, 0, 0});
    driver_.frame(0, arguments);
  }

  PatchDriver driver_{std::make_unique<QVACompositionRendererPatchPlugIn>()};
};

TEST_F(CompositionRendererPatchTest, DrawsTheTextureUprightForBothTargets) {
  for (const GLenum target : {GLenum{GL_TEXTURE_2D}, GLenum{GL_TEXTURE_RECTANGLE}}) {
    SCOPED_TRACE(target);
    draw(videoArguments(makeTexture(target), target));
    EXPECT_EQ(pixel(0, 0), (Pixel{0, 0, 255, 255}));
    EXPECT_EQ(pixel(7, 0), (Pixel{0, 255, 0, 255}));
    EXPECT_EQ(pixel(0, 7), (Pixel{255, 0, 0, 255}));
    EXPECT_EQ(pixel(7, 7), (Pixel{255, 255, 255, 255}));
  }
}

TEST_F(CompositionRendererPatchTest, OpacityOffsetAndInvertedFields) {
  const GLuint texture = makeTexture(GL_TEXTURE_2D);
  Arguments arguments = videoArguments(texture, GL_TEXTURE_2D);
  arguments["opacity"] = 0.5;
  arguments["alpha"] = 1.0;
  draw(arguments);
  EXPECT_NEAR(pixel(7, 7)[0], 128, 1);
  EXPECT_EQ(pixel(7, 7)[3], 255);

  // An offset of one row, a quarter unit each, takes a row off the top and the bottom.
  arguments = videoArguments(texture, GL_TEXTURE_2D);
  arguments["glCoordPerYPixel"] = 0.25;
  arguments["textureOffset"] = 1.0;
  draw(arguments);
  EXPECT_EQ(pixel(0, 0)[3], 0);
  EXPECT_EQ(pixel(0, 1)[2], 255);
  EXPECT_EQ(pixel(0, 7)[3], 0);

  // Inverted fields: the picture moves down a row, and a black line marks the vacated top row.
  arguments = videoArguments(texture, GL_TEXTURE_2D);
  arguments["glCoordPerYPixel"] = 0.25;
  arguments["invertFields"] = true;
  draw(arguments);
  EXPECT_EQ(pixel(3, 0), (Pixel{0, 0, 0, 255}));
  EXPECT_EQ(pixel(0, 1)[2], 255);
  EXPECT_EQ(pixel(0, 4), (Pixel{0, 0, 255, 255}));
  EXPECT_EQ(pixel(0, 5), (Pixel{255, 0, 0, 255}));
}

TEST_F(CompositionRendererPatchTest, DrawsNothingWithoutATexture) {
  draw(Arguments());
  draw(Arguments{{"texture", 0}, {"textureTarget", GL_TEXTURE_2D}});
  draw(Arguments{{"texture", makeTexture(GL_TEXTURE_2D)}});
  EXPECT_EQ(pixel(4, 4), (Pixel{0, 0, 0, 0}));
}

}  // namespace
}  // namespace qva
