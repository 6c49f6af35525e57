#include <epoxy/gl.h>
#include <gtest/gtest.h>

#include "support/PatchDriver.h"
#include "RenderCanvas.h"
#include "patches/render/QVASafeAreasPlugIn.h"

namespace qva {
namespace {

void expectRect(const Rect& actual, const Rect& expected) {
  EXPECT_NEAR(actual.x, expected.x, 1e-12);
  EXPECT_NEAR(actual.y, expected.y, 1e-12);
  EXPECT_NEAR(actual.width, expected.width, 1e-12);
  EXPECT_NEAR(actual.height, expected.height, 1e-12);
}

TEST(SafeAreasTest, FramesAreNinetyAndEightyPercent) {
  const Rect bounds{-1, -0.75, 2, 1.5};
  expectRect(QVASafeAreasPlugIn::actionSafeArea(bounds), {-0.9, -0.675, 1.8, 1.35});
  expectRect(QVASafeAreasPlugIn::titleSafeArea(bounds), {-0.8, -0.6, 1.6, 1.2});
  EXPECT_EQ(QVASafeAreasPlugIn::patchClass().executionMode, ExecutionMode::Consumer);
}

TEST(SafeAreasTest, DrawsRedActionAndYellowTitleFrames) {
  std::string error;
  auto canvas = RenderCanvas::create(200, 150, error);
  if (!canvas) {
    GTEST_SKIP() << error;
  }
  PatchDriver driver(std::make_unique<QVASafeAreasPlugIn>());
  canvas->begin(driver.context());
  ASSERT_TRUE(driver.frame(0));
  // Action safe at x = -0.9 (column 10), title safe at x = -0.8 (column 20), both mid-height.
  const auto action = canvas->pixel(10, 75);
  EXPECT_EQ(action[2], 255);
  EXPECT_EQ(action[1], 0);
  const auto title = canvas->pixel(20, 75);
  EXPECT_EQ(title[2], 255);
  EXPECT_EQ(title[1], 255);
  EXPECT_EQ(canvas->pixel(100, 75)[3], 0);
  // The title frame is drawn last.
  EXPECT_EQ(canvas->pixel(100, 15)[1], 255);
  EXPECT_EQ(canvas->pixel(100, 15)[2], 255);

  driver.set("inputShowActionSafeArea", Value(false));
  driver.set("inputShowTitleSafeArea", Value(false));
  canvas->begin(driver.context());
  glLineWidth(1.0f);
  ASSERT_TRUE(driver.frame(1));
  EXPECT_EQ(canvas->pixel(10, 75)[3], 0);
  EXPECT_EQ(canvas->pixel(20, 75)[3], 0);
  GLfloat width = 0;
  glGetFloatv(GL_LINE_WIDTH, &width);
  EXPECT_EQ(width, 2.0f);
}

}  // namespace
}  // namespace qva
