#include <epoxy/gl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

#include "foundation/gl/Framebuffer.h"
#include "foundation/gl/GLContext.h"
#include "foundation/gl/PrefilteredTexture.h"
#include "support/GLTest.h"

namespace qva {
namespace {

constexpr int kCanvas = 96;

struct Difference {
  int largest = 0;
  double mean = 0;
};

Difference difference(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b) {
  Difference result;
  long total = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const int d = std::abs(a[i] - b[i]);
    result.largest = std::max(result.largest, d);
    total += d;
  }
  result.mean = static_cast<double>(total) / static_cast<double>(a.size());
  return result;
}

class PrefilteredTextureTest : public GLTest {
 protected:
  void SetUp() override {
    GLTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    canvas_ = Framebuffer::create(kCanvas, kCanvas, TextureTarget::Texture2D, false);
    ASSERT_TRUE(canvas_);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glOrtho(0, kCanvas, 0, kCanvas, -1, 1);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glDisable(GL_BLEND);
  }

  void TearDown() override {
    if (source_ != 0) {
      glDeleteTextures(1, &source_);
    }
  }

  // A mipmapped texture of premultiplied noise: every texel differs from its neighbours, so any
  // misplaced sample or wrong weight shows.
  void makeSource(int width, int height) {
    std::mt19937 random(7);
    std::vector<std::uint8_t> texels(static_cast<std::size_t>(width * height * 4));
    for (std::size_t i = 0; i < texels.size(); i += 4) {
      const auto alpha = static_cast<std::uint8_t>(random() % 256);
      for (std::size_t c = 0; c < 3; ++c) {
        texels[i + c] = static_cast<std::uint8_t>(random() % (alpha + 1u));
      }
      texels[i + 3] = alpha;
    }
    glGenTextures(1, &source_);
    glBindTexture(GL_TEXTURE_2D, source_);
    GLContext::specifyTexture(GL_TEXTURE_2D, width, height, texels.data());
    glGenerateMipmap(GL_TEXTURE_2D);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    sourceWidth_ = width;
    sourceHeight_ = height;
  }

  // Where draw() puts the quad's lower left corner, in window pixels.
  static constexpr double kLeft = 3.3;
  static constexpr double kBottom = 5.6;

  // The texture bound to unit 0 on a quad of the source scaled down by a factor, at a fractional
  // position; the canvas's pixels, bottom row first.
  std::vector<std::uint8_t> draw(double factor) {
    std::vector<std::uint8_t> pixels(kCanvas * kCanvas * 4);
    canvas_->bind();
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT);
    glEnable(GL_TEXTURE_2D);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
    glBegin(GL_QUADS);
    for (const auto& [s, t] : {std::pair{0, 0}, {1, 0}, {1, 1}, {0, 1}}) {
      glTexCoord2d(s, t);
      glVertex2d(kLeft + s * sourceWidth_ / factor, kBottom + t * sourceHeight_ / factor);
    }
    glEnd();
    Framebuffer::readPixels(kCanvas, kCanvas, pixels.data(), kCanvas * 4, false);
    canvas_->unbind();
    return pixels;
  }

  std::vector<std::uint8_t> drawBake(const PrefilteredTexture& bake, double factor) {
    glBindTexture(GL_TEXTURE_2D, bake.texture());
    glMatrixMode(GL_TEXTURE);
    bake.loadTextureMatrix();
    auto pixels = draw(factor);
    glMatrixMode(GL_TEXTURE);
    glLoadIdentity();
    glMatrixMode(GL_MODELVIEW);
    return pixels;
  }

  // Expects the bake drawn with bilinear sampling to give the source's trilinear filter at the bake's
  // level of detail, which GL is given exactly (the driver's own may be approximated); the bake's
  // pixels.
  std::vector<std::uint8_t> expectTheFilter(const PrefilteredTexture& bake, double factor) {
    glBindTexture(GL_TEXTURE_2D, source_);
    const auto detail = static_cast<float>(bake.levelOfDetail());
    glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MIN_LOD, detail);
    glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MAX_LOD, detail);
    const auto filtered = draw(factor);
    auto baked = drawBake(bake, factor);
    // The bake's samples and the driver's filter each round to 8 bits.
    const Difference found = difference(filtered, baked);
    EXPECT_LE(found.largest, 2) << factor;
    EXPECT_LT(found.mean, 0.1) << factor;
    return baked;
  }

  std::optional<Framebuffer> canvas_;
  GLuint source_ = 0;
  int sourceWidth_ = 0;
  int sourceHeight_ = 0;
};

// Between two levels, within one level, and from the first level to the second exactly, with the
// quad's edges where the source's repeat wraps the filter round.
TEST_F(PrefilteredTextureTest, BilinearSamplingOfTheBakeIsTheTrilinearFilter) {
  GLuint white = 0;
  glGenTextures(1, &white);
  glBindTexture(GL_TEXTURE_RECTANGLE, white);
  const std::uint32_t opaqueWhite = 0xffffffff;
  GLContext::specifyTexture(GL_TEXTURE_RECTANGLE, 1, 1, &opaqueWhite);
  makeSource(64, 48);
  for (const double factor : {1.3, 1.56, 2.0, 2.9, 5.7}) {
    const double detail = std::log2(factor);
    // A rectangle texture left enabled (it would win over 2D) does not disturb the bake.
    glEnable(GL_TEXTURE_RECTANGLE);
    const auto bake = PrefilteredTexture::bake(source_, 64, 48, detail);
    glDisable(GL_TEXTURE_RECTANGLE);
    ASSERT_TRUE(bake) << factor;
    EXPECT_EQ(bake->levelOfDetail(), detail);
    const auto baked = expectTheFilter(*bake, factor);
    // The quad covered something.
    EXPECT_NE(std::count(baked.begin(), baked.end(), 0), static_cast<long>(baked.size())) << factor;
  }
  glDeleteTextures(1, &white);
}

// Baked on the rows the quad's window rows sample, the filter comes back too, at levels of an even
// height and, which the grid's rows cannot take, of an odd one (64 × 40 gives 8 × 5 at level 3).
TEST_F(PrefilteredTextureTest, BakedOnTheWindowsRowsTheFilterComesBack) {
  makeSource(64, 40);
  for (const double factor : {1.3, 2.9, 9.85}) {
    const double detail = std::log2(factor);
    // t runs from 0 at kBottom to 1 a quad's height above; from the row below the quad's to the row
    // above it, each window row's centre.
    const double quadHeight = sourceHeight_ / factor;
    const int lowest = static_cast<int>(kBottom) - 1;
    const int count = static_cast<int>(kBottom + quadHeight) + 2 - lowest;
    const PrefilteredTexture::Rows rows{count, (lowest + 0.5 - kBottom) / quadHeight, 1 / quadHeight};
    const auto bake = PrefilteredTexture::bake(source_, 64, 40, detail, rows);
    ASSERT_TRUE(bake) << factor;
    EXPECT_EQ(bake->rows(), rows);
    expectTheFilter(*bake, factor);
  }
  // Level 3 on the grid's rows would need half rows of level 4.
  EXPECT_FALSE(PrefilteredTexture::bake(source_, 64, 40, 3.3));
  // No rows, or rows that do not advance.
  EXPECT_FALSE(PrefilteredTexture::bake(source_, 64, 40, 0.5, PrefilteredTexture::Rows{0, 0, 0.1}));
  EXPECT_FALSE(PrefilteredTexture::bake(source_, 64, 40, 0.5, PrefilteredTexture::Rows{4, 0, 0}));
}

TEST_F(PrefilteredTextureTest, BakesOnlyWhereTheFilterCanBeReproduced) {
  makeSource(64, 48);
  // Magnified, not a number, and level 4 (4 × 3) with an odd side.
  for (const double detail : {0.0, -0.5, std::nan(""), 4.2}) {
    EXPECT_FALSE(PrefilteredTexture::bake(source_, 64, 48, detail)) << detail;
  }
  EXPECT_TRUE(PrefilteredTexture::bake(source_, 64, 48, 3.9));
  EXPECT_FALSE(PrefilteredTexture::bake(source_, 0, 48, 0.5));
  // 8192 × 4096 texels would bake into 16385 × 8193: past the bound on memory, though the driver
  // might allow the size.
  EXPECT_FALSE(PrefilteredTexture::bake(source_, 8192, 4096, 0.5));
}

TEST_F(PrefilteredTextureTest, LeavesTheStateItFound) {
  makeSource(64, 48);
  canvas_->bind();
  glUseProgram(0);
  glEnable(GL_BLEND);
  glMatrixMode(GL_TEXTURE);
  glTranslated(0.25, 0, 0);
  glMatrixMode(GL_MODELVIEW);
  const auto bake = PrefilteredTexture::bake(source_, 64, 48, 0.5);
  ASSERT_TRUE(bake);
  GLint framebuffer = 0;
  GLint viewport[4] = {};
  GLint texture = 0;
  GLfloat minimumLOD = 0;
  GLint filter = 0;
  GLdouble textureMatrix[16] = {};
  glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &framebuffer);
  glGetIntegerv(GL_VIEWPORT, viewport);
  glGetIntegerv(GL_TEXTURE_BINDING_2D, &texture);
  glGetTexParameterfv(GL_TEXTURE_2D, GL_TEXTURE_MIN_LOD, &minimumLOD);
  glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &filter);
  glGetDoublev(GL_TEXTURE_MATRIX, textureMatrix);
  EXPECT_NE(framebuffer, 0);
  EXPECT_EQ(viewport[2], kCanvas);
  EXPECT_EQ(static_cast<GLuint>(texture), source_);
  EXPECT_EQ(minimumLOD, -1000);
  EXPECT_EQ(filter, GL_LINEAR_MIPMAP_LINEAR);
  EXPECT_EQ(textureMatrix[12], 0.25);
  EXPECT_TRUE(glIsEnabled(GL_BLEND));
  EXPECT_EQ(GLContext::takeError(), 0u);
  canvas_->unbind();
}

}  // namespace
}  // namespace qva
