#include <epoxy/gl.h>
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <set>
#include <string>
#include <utility>

#include "foundation/gl/Framebuffer.h"
#include "foundation/gl/GLContext.h"
#include "foundation/image/Bitmap.h"
#include "support/GLTest.h"

namespace qva {
namespace {

class GLContextTest : public GLTest {
 protected:
  // A 2×2 image: red, green over blue, half-transparent white (premultiplied BGRA).
  static ImageRef quadrants() {
    auto bitmap = Bitmap::allocate(2, 2, Bitmap::paddedRowBytes(2));
    const std::uint8_t top[8] = {0, 0, 255, 255, 0, 255, 0, 255};
    const std::uint8_t bottom[8] = {255, 0, 0, 255, 128, 128, 128, 128};
    std::copy(top, top + 8, bitmap->row(0));
    std::copy(bottom, bottom + 8, bitmap->row(1));
    return std::move(*bitmap).toImage();
  }

  static void expectQuadrants(const PixelBufferView& pixels) {
    ASSERT_EQ(pixels.width, 2);
    ASSERT_EQ(pixels.height, 2);
    const std::uint8_t expected[2][8] = {{0, 0, 255, 255, 0, 255, 0, 255},
                                         {255, 0, 0, 255, 128, 128, 128, 128}};
    for (int y = 0; y < 2; ++y) {
      for (int i = 0; i < 8; ++i) {
        EXPECT_NEAR(pixels.bytes[y * pixels.rowBytes + i], expected[y][i], 1) << "row " << y << " byte " << i;
      }
    }
  }
};

// An image drawn on demand: its left half red, its right half transparent.
class HalfRedImage final : public Image {
 public:
  int width() const override { return 4; }
  int height() const override { return 2; }
  std::optional<PixelBufferView> pixelBuffer() const override { return std::nullopt; }
  bool canRender() const override { return true; }
  bool render(GLContext&) const override {
    ++renders;
    glColor4d(1, 0, 0, 1);
    glRectd(-1, -1, 0, 1);
    return true;
  }
  mutable int renders = 0;
};

// An image drawn on demand that paints its whole frame one colour, each pixel once.
class SolidImage final : public Image {
 public:
  SolidImage(int width, double green) : width_(width), green_(green) {}
  int width() const override { return width_; }
  int height() const override { return 2; }
  std::optional<PixelBufferView> pixelBuffer() const override { return std::nullopt; }
  bool canRender() const override { return true; }
  bool rendersEveryPixelOnce() const override { return true; }
  bool render(GLContext&) const override {
    glColor4d(0, green_, 0, 1);
    glRectd(-1, -1, 1, 1);
    return true;
  }

 private:
  int width_;
  double green_;
};

TEST_F(GLContextTest, DescribesTheDriver) {
  EXPECT_FALSE(gl_->description().empty());
}

TEST_F(GLContextTest, UploadAndReadBackKeepPixelsAndOrientation) {
  const ImageRef image = quadrants();
  const auto rectangle = gl_->textureForImage(*image);
  ASSERT_TRUE(rectangle);
  EXPECT_EQ(rectangle->target, TextureTarget::Rectangle);
  const auto planar = gl_->textureForImage(*image, TextureTarget::Texture2D);
  ASSERT_TRUE(planar);
  EXPECT_EQ(planar->target, TextureTarget::Texture2D);
  EXPECT_NE(planar->name, rectangle->name);
  for (const auto& texture : {*rectangle, *planar}) {
    EXPECT_TRUE(texture.flipped);
    // Each conversion is kept with the image.
    EXPECT_EQ(gl_->textureForImage(*image, texture.target)->name, texture.name);
    // A second image that only has the texture reads back the same pixels.
    const auto wrapped = std::make_shared<TextureImage>(texture, nullptr);
    const auto pixels = gl_->pixelsForImage(*wrapped);
    ASSERT_TRUE(pixels);
    expectQuadrants(*pixels);
  }
}

TEST_F(GLContextTest, BindingShowsEveryTextureUprightInAFramebuffer) {
  const ImageRef image = quadrants();
  const auto texture = gl_->textureForImage(*image);
  ASSERT_TRUE(texture);
  auto target = Framebuffer::create(2, 2, TextureTarget::Texture2D, false);
  ASSERT_TRUE(target);
  target->bind();
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glOrtho(0, 1, 0, 1, -1, 1);
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  GLContext::bindTexture(*texture, 0, true);
  glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
  glBegin(GL_QUADS);
  for (const auto& [x, y] : {std::pair{0, 0}, {1, 0}, {1, 1}, {0, 1}}) {
    glTexCoord2d(x, y);
    glVertex2d(x, y);
  }
  glEnd();
  GLContext::unbindTexture(*texture, 0);
  auto bitmap = Bitmap::allocate(2, 2, Bitmap::paddedRowBytes(2));
  Framebuffer::readPixels(2, 2, bitmap->bytes(), bitmap->rowBytes());
  target->unbind();
  expectQuadrants(bitmap->view());
  EXPECT_EQ(GLContext::takeError(), 0u);
}

TEST_F(GLContextTest, DrawnImagesRenderOnceIntoTheirOwnTexture) {
  const auto image = std::make_shared<HalfRedImage>();
  const auto pixels = gl_->pixelsForImage(*image);
  ASSERT_TRUE(pixels);
  EXPECT_EQ(pixels->width, 4);
  const std::uint8_t* row = pixels->bytes;
  EXPECT_EQ(row[2], 255);  // left: red
  EXPECT_EQ(row[3], 255);
  EXPECT_EQ(row[14], 0);  // right: transparent
  EXPECT_EQ(row[15], 0);
  ASSERT_TRUE(gl_->textureForImage(*image));
  ASSERT_TRUE(gl_->pixelsForImage(*image));
  EXPECT_EQ(image->renders, 1);

  // Read back after it was drawn into a 2D texture, it is read from that one.
  const auto shown = std::make_shared<HalfRedImage>();
  ASSERT_TRUE(gl_->textureForImage(*shown, TextureTarget::Texture2D));
  const auto shownPixels = gl_->pixelsForImage(*shown);
  ASSERT_TRUE(shownPixels);
  EXPECT_EQ(shownPixels->bytes[2], 255);
  EXPECT_EQ(shownPixels->bytes[15], 0);
  EXPECT_EQ(shown->renders, 1);
}

// The texture of a drawn image that has gone is drawn into by the next one of its size, as a new one
// would be: cleared unless the image paints every pixel, with the sampling a new texture has.
TEST_F(GLContextTest, TexturesOfDrawnImagesGoneAreDrawnIntoAgain) {
  auto green = std::make_shared<SolidImage>(4, 1);
  const auto first = gl_->textureForImage(*green, TextureTarget::Texture2D);
  ASSERT_TRUE(first);
  glBindTexture(GL_TEXTURE_2D, first->name);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
  green.reset();

  // Another size or kind makes a texture of its own.
  const auto wider = std::make_shared<SolidImage>(6, 1);
  EXPECT_NE(gl_->textureForImage(*wider, TextureTarget::Texture2D)->name, first->name);
  const auto rectangle = std::make_shared<SolidImage>(4, 1);
  EXPECT_NE(gl_->textureForImage(*rectangle, TextureTarget::Rectangle)->name, first->name);

  auto halfRed = std::make_shared<HalfRedImage>();
  const auto second = gl_->textureForImage(*halfRed, TextureTarget::Texture2D);
  ASSERT_TRUE(second);
  EXPECT_EQ(second->name, first->name);
  GLint filter = 0;
  glBindTexture(GL_TEXTURE_2D, second->name);
  glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, &filter);
  EXPECT_EQ(filter, GL_LINEAR);
  const auto cleared = gl_->pixelsForImage(*halfRed);
  ASSERT_TRUE(cleared);
  EXPECT_EQ(cleared->bytes[2], 255);  // left: red
  EXPECT_EQ(cleared->bytes[1], 0);
  EXPECT_EQ(cleared->bytes[13], 0);  // right: transparent, no green left over
  EXPECT_EQ(cleared->bytes[15], 0);
  halfRed.reset();

  const auto dark = std::make_shared<SolidImage>(4, 0.2);
  const auto third = gl_->textureForImage(*dark, TextureTarget::Texture2D);
  ASSERT_TRUE(third);
  EXPECT_EQ(third->name, first->name);
  const auto painted = gl_->pixelsForImage(*dark);
  ASSERT_TRUE(painted);
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 4; ++x) {
      const std::uint8_t* pixel = painted->bytes + y * painted->rowBytes + x * 4;
      EXPECT_EQ(pixel[1], 51) << x << ", " << y;
      EXPECT_EQ(pixel[2], 0) << x << ", " << y;
    }
  }

  // Uploaded pixels are not kept once their image goes.
  GLuint uploaded = 0;
  {
    const ImageRef pixels = quadrants();
    uploaded = gl_->textureForImage(*pixels, TextureTarget::Texture2D)->name;
  }
  EXPECT_FALSE(glIsTexture(uploaded));
  EXPECT_EQ(GLContext::takeError(), 0u);
}

TEST_F(GLContextTest, ProgramsAreBuiltOnceAndRefusedTextGivesNone) {
  const std::string vertex = "void main() { gl_Position = ftransform(); }";
  const std::string fragment = "uniform vec4 colour; void main() { gl_FragColor = colour; }";
  const unsigned program = gl_->program(vertex, fragment);
  EXPECT_NE(program, 0u);
  EXPECT_EQ(gl_->program(vertex, fragment), program);
  EXPECT_EQ(gl_->program(vertex, "void main() { gl_FragColor = undeclared; }"), 0u);
  // The texturing programs: one for each target, tinted or not, each built once.
  std::set<unsigned> texturing;
  for (const TextureTarget target : {TextureTarget::Texture2D, TextureTarget::Rectangle}) {
    for (const bool tinted : {false, true}) {
      const unsigned made = gl_->texturingProgram(target, tinted);
      EXPECT_NE(made, 0u);
      EXPECT_EQ(gl_->texturingProgram(target, tinted), made);
      texturing.insert(made);
    }
  }
  EXPECT_EQ(texturing.size(), 4u);
  EXPECT_EQ(GLContext::takeError(), 0u);
}

// Wholly transparent pixels drawn under one state after another: wherever the context says they draw
// nothing, the framebuffer's colour and depth stay as they were.
TEST_F(GLContextTest, TransparentPixelsDrawNothingUnderOverAndAddBlending) {
  auto target = Framebuffer::create(1, 1, TextureTarget::Texture2D, true);
  ASSERT_TRUE(target);
  target->bind();
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  struct Outcome {
    bool drawsNothing;
    bool unchanged;
  };
  const auto read = [] {
    std::array<std::uint8_t, 4> colour{};
    GLfloat depth = 0;
    glReadPixels(0, 0, 1, 1, GL_BGRA, GL_UNSIGNED_BYTE, colour.data());
    glReadPixels(0, 0, 1, 1, GL_DEPTH_COMPONENT, GL_FLOAT, &depth);
    return std::make_pair(colour, depth);
  };
  const auto drawTransparent = [&](const std::function<void()>& state) {
    glClearColor(0.25f, 0.5f, 0.125f, 0.5f);
    glClearDepth(1);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    const auto before = read();
    glPushAttrib(GL_ALL_ATTRIB_BITS);
    state();
    const bool drawsNothing = GLContext::drawsNothingWhereTransparent();
    glColor4d(0, 0, 0, 0);
    glRectd(-1, -1, 1, 1);
    glPopAttrib();
    const Outcome outcome{drawsNothing, read() == before};
    EXPECT_TRUE(outcome.unchanged || !outcome.drawsNothing);
    return outcome;
  };
  const auto blend = [](GLenum source, GLenum destination) {
    glEnable(GL_BLEND);
    glBlendFunc(source, destination);
  };
  EXPECT_TRUE(drawTransparent([&] { blend(GL_ONE, GL_ONE_MINUS_SRC_ALPHA); }).drawsNothing);
  EXPECT_TRUE(drawTransparent([&] { blend(GL_ONE, GL_ONE); }).drawsNothing);
  EXPECT_TRUE(drawTransparent([&] {
                blend(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
                glEnable(GL_DEPTH_TEST);
                glDepthMask(GL_FALSE);
              }).drawsNothing);
  // Replacing writes the transparent pixels.
  const Outcome replaced = drawTransparent([] { glDisable(GL_BLEND); });
  EXPECT_FALSE(replaced.drawsNothing);
  EXPECT_FALSE(replaced.unchanged);
  EXPECT_FALSE(drawTransparent([&] { blend(GL_ONE, GL_ZERO); }).drawsNothing);
  EXPECT_FALSE(drawTransparent([&] {
                 blend(GL_ONE, GL_ONE);
                 glBlendEquation(GL_FUNC_SUBTRACT);
               }).drawsNothing);
  EXPECT_FALSE(drawTransparent([&] {
                 blend(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
                 glEnable(GL_COLOR_LOGIC_OP);
               }).drawsNothing);
  // Depth writes change the depth buffer even where the colour stays.
  const Outcome depthWritten = drawTransparent([&] {
    blend(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_ALWAYS);
  });
  EXPECT_FALSE(depthWritten.drawsNothing);
  EXPECT_FALSE(depthWritten.unchanged);
  target->unbind();
  EXPECT_EQ(GLContext::takeError(), 0u);
}

TEST_F(GLContextTest, EmptyAndOversizedTargetsAreRefused) {
  EXPECT_FALSE(Framebuffer::create(0, 10, TextureTarget::Texture2D, false));
  EXPECT_FALSE(Framebuffer::create(100000, 10, TextureTarget::Texture2D, true));
  auto empty = Bitmap::allocate(0, 5, 16);
  const ImageRef image = std::move(*empty).toImage();
  EXPECT_FALSE(gl_->textureForImage(*image));
  EXPECT_EQ(GLContext::takeError(), 0u);
}

TEST(GLContextCreationTest, MissingDriverIsAClearErrorNotACrash) {
  // With no vendor library to load, EGL has no display to offer.
  setenv("__EGL_VENDOR_LIBRARY_FILENAMES", "/nonexistent/egl_vendor.json", 1);
  auto creation = GLContext::create();
  unsetenv("__EGL_VENDOR_LIBRARY_FILENAMES");
  if (creation.context) {
    GTEST_SKIP() << "the EGL loader here ignores the vendor override";
  }
  EXPECT_EQ(creation.error.rfind("no OpenGL: ", 0), 0u) << creation.error;
}

}  // namespace
}  // namespace qva
