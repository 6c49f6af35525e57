#include <epoxy/gl.h>
#include <gtest/gtest.h>

#include "foundation/gl/WindowTransform.h"
#include "support/GLTest.h"

namespace qva {
namespace {

class WindowTransformTest : public GLTest {
 protected:
  void SetUp() override {
    GLTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    glViewport(10, 20, 200, 100);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
  }
};

TEST_F(WindowTransformTest, OrthographicViewsMapThePlaneAffinely) {
  // Units from -2 to 2 across and -1 to 1 up: 50 pixels a unit both ways, the origin at (110, 70).
  glMatrixMode(GL_PROJECTION);
  glOrtho(-2, 2, -1, 1, -10, 10);
  glMatrixMode(GL_MODELVIEW);
  glTranslated(0.5, -0.2, 3);
  glRotated(90, 0, 0, 1);
  const auto transform = WindowTransform::current();
  ASSERT_TRUE(transform);
  // Turned a quarter: object x runs up the window and object y to the left (single-precision matrices).
  EXPECT_NEAR(transform->xx, 0, 1e-4);
  EXPECT_NEAR(transform->xy, -50, 1e-4);
  EXPECT_NEAR(transform->yx, 50, 1e-4);
  EXPECT_NEAR(transform->yy, 0, 1e-4);
  EXPECT_NEAR(transform->x0, 135, 1e-4);
  EXPECT_NEAR(transform->y0, 60, 1e-4);
  // Turning about x only shortens the plane's y.
  glLoadIdentity();
  glRotated(60, 1, 0, 0);
  ASSERT_TRUE(WindowTransform::current());
  EXPECT_NEAR(WindowTransform::current()->yy, 25, 1e-5);
}

TEST_F(WindowTransformTest, PerspectiveHasNone) {
  glMatrixMode(GL_PROJECTION);
  glFrustum(-1, 1, -1, 1, 1, 10);
  glMatrixMode(GL_MODELVIEW);
  glTranslated(0, 0, -2);
  glRotated(30, 0, 1, 0);
  EXPECT_FALSE(WindowTransform::current());
}

}  // namespace
}  // namespace qva
