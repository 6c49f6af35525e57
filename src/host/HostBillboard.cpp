#include "host/HostBillboard.h"

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>
#include <optional>

#include "foundation/gl/GLContext.h"
#include "foundation/gl/WindowTransform.h"

namespace qva {

namespace {

// Where the quad from (left, bottom) to (right, top) lies in the window when it covers exactly width ×
// height whole window pixels under the current matrices and viewport: its lower-left pixel, and which
// ways its corners are swapped. Then every pixel centre meets a texel centre, and nearest sampling gives
// what linear sampling does from a quarter of the texel reads: artwork made at the output's size is
// the common case, and large images are what costs most to draw.
struct PixelPlacement {
  int x = 0;
  int y = 0;
  bool mirrored = false;
  bool upsideDown = false;
};

std::optional<PixelPlacement> wholePixelPlacement(double left, double bottom, double right, double top,
                                                  int width, int height) {
  const auto transform = WindowTransform::current();
  // A sub-texel offset below 1/10,000 is below any sampler's weight precision.
  constexpr double tolerance = 1e-4;
  const auto near = [](double a, double b) { return std::abs(a - b) < tolerance; };
  if (!transform || !near(transform->xy, 0) || !near(transform->yx, 0)) {
    return std::nullopt;  // in perspective or turned
  }
  const double x0 = transform->xx * left + transform->x0;
  const double x1 = transform->xx * right + transform->x0;
  const double y0 = transform->yy * bottom + transform->y0;
  const double y1 = transform->yy * top + transform->y0;
  const double startX = std::min(x0, x1);
  const double startY = std::min(y0, y1);
  if (!near(std::abs(x1 - x0), width) || !near(std::abs(y1 - y0), height) ||
      !near(startX, std::round(startX)) || !near(startY, std::round(startY))) {
    return std::nullopt;
  }
  return PixelPlacement{static_cast<int>(std::lround(startX)), static_cast<int>(std::lround(startY)), x1 < x0,
                        y1 < y0};
}

// Draws the texture over the quad with the bound blending, multiplied by the tint if there is one.
bool drawTexture(GLContext& gl, const TextureView& texture, double left, double bottom, double right,
                 double top, bool nearest, const std::optional<Color>& tint) {
  // Through GLSL rather than fixed-function texturing: see GLContext::texturingProgram.
  const unsigned program = gl.texturingProgram(texture.target, tint.has_value());
  if (program == 0) {
    return false;
  }
  GLContext::bindTexture(texture, 0, true);
  const GLenum target = GLContext::glTarget(texture.target);
  const GLint filter = nearest ? GL_NEAREST : GL_LINEAR;
  glTexParameteri(target, GL_TEXTURE_MIN_FILTER, filter);
  glTexParameteri(target, GL_TEXTURE_MAG_FILTER, filter);
  GLint previousProgram = 0;
  glGetIntegerv(GL_CURRENT_PROGRAM, &previousProgram);
  glUseProgram(program);
  glUniform1i(glGetUniformLocation(program, "image"), 0);
  if (tint) {
    // The texture holds premultiplied colour, so the tint is premultiplied too.
    glUniform4f(glGetUniformLocation(program, "tint"), static_cast<GLfloat>(tint->red * tint->alpha),
                static_cast<GLfloat>(tint->green * tint->alpha),
                static_cast<GLfloat>(tint->blue * tint->alpha), static_cast<GLfloat>(tint->alpha));
  }
  glBegin(GL_QUADS);
  glTexCoord2d(0, 0);
  glVertex2d(left, bottom);
  glTexCoord2d(1, 0);
  glVertex2d(right, bottom);
  glTexCoord2d(1, 1);
  glVertex2d(right, top);
  glTexCoord2d(0, 1);
  glVertex2d(left, top);
  glEnd();
  glUseProgram(static_cast<GLuint>(previousProgram));
  GLContext::unbindTexture(texture, 0);
  return true;
}

}  // namespace

const PatchClass& HostBillboard::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "HostBillboard";
    c.name = "Billboard";
    c.description = "Displays an image at a position and width, blended over the canvas.";
    c.executionMode = ExecutionMode::Consumer;
    c.timeMode = TimeMode::None;
    c.inputs = {
        PortDescription::port("inputImage", PortType::Image, "Image"),
        PortDescription::port("inputX", PortType::Number, "X Position", Value(0.0)),
        PortDescription::port("inputY", PortType::Number, "Y Position", Value(0.0)),
        PortDescription::port("inputWidth", PortType::Number, "Width", Value(0.0)),
        PortDescription::port("inputColor", PortType::Color, "Color", Value(Color{1, 1, 1, 1})),
        PortDescription::port("inputBlending", PortType::Index, "Blending", Value(std::uint32_t{1}))
            .withMaximum(2)
            .withMenu({"Replace", "Over", "Add"}),
    };
    c.create = [] { return std::make_unique<HostBillboard>(); };
    return c;
  }();
  return patchClass;
}

bool HostBillboard::execute(ExecutionContext& context, double /*time*/, const Arguments& /*arguments*/) {
  GLContext* gl = context.glContext();
  if (gl == nullptr) {
    return false;
  }
  const ImageRef image = valueForInputKey("inputImage").imageValue();
  if (!image || image->width() <= 0 || image->height() <= 0) {
    return true;
  }
  double width = inputNumber("inputWidth");
  if (width == 0 && context.viewport().width > 0) {
    width = image->logicalWidth() / context.viewport().width * context.bounds().width;
  }
  const double height = width * image->height() / image->width();
  const double x = inputNumber("inputX");
  const double y = inputNumber("inputY");
  const double left = x - width / 2;
  const double right = x + width / 2;
  const double bottom = y - height / 2;
  const double top = y + height / 2;
  std::optional<Color> tint = valueForInputKey("inputColor").colorValue();
  if (tint && tint->red == 1 && tint->green == 1 && tint->blue == 1 && tint->alpha == 1) {
    tint.reset();  // white leaves the image as it is
  }
  const auto placement = wholePixelPlacement(left, bottom, right, top, image->width(), image->height());

  glPushAttrib(GL_ALL_ATTRIB_BITS);
  switch (inputIndex("inputBlending")) {
    case 0:
      glDisable(GL_BLEND);
      break;
    case 2:
      glEnable(GL_BLEND);
      glBlendFunc(GL_ONE, GL_ONE);
      break;
    default:
      glEnable(GL_BLEND);
      glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
      break;
  }
  glDisable(GL_DEPTH_TEST);
  // An image that renders every pixel once, shown pixel for pixel, draws itself in place: its texture
  // would only be copied there.
  bool drawn =
      !tint && placement &&
      gl->renderImageInPlace(*image, placement->x, placement->y, placement->mirrored, placement->upsideDown);
  if (!drawn) {
    // Images without a texture of their own get a 2D one, which the fast path reads (see
    // GLContext::texturingProgram).
    const auto texture = gl->textureForImage(*image, TextureTarget::Texture2D);
    drawn = !texture || drawTexture(*gl, *texture, left, bottom, right, top, placement.has_value(), tint);
  }
  glPopAttrib();
  return drawn && GLContext::takeError() == 0;
}

}  // namespace qva
