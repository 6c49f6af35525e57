#include "host/HostBillboard.h"

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "foundation/gl/GLContext.h"

namespace qva {

namespace {

// Whether the quad from (left, bottom) to (right, top) covers exactly width × height whole window pixels
// under the current matrices and viewport. Then every pixel centre meets a texel centre, and nearest
// sampling gives what linear sampling does from a quarter of the texel reads: artwork made at the
// output's size is the common case, and large images are what costs most to draw.
bool coversWholePixels(double left, double bottom, double right, double top, int width, int height) {
  GLdouble projection[16];
  GLdouble modelview[16];
  GLint viewport[4];
  glGetDoublev(GL_PROJECTION_MATRIX, projection);
  glGetDoublev(GL_MODELVIEW_MATRIX, modelview);
  glGetIntegerv(GL_VIEWPORT, viewport);
  double m[16];  // projection × modelview, column-major
  for (int column = 0; column < 4; ++column) {
    for (int row = 0; row < 4; ++row) {
      double sum = 0;
      for (int k = 0; k < 4; ++k) {
        sum += projection[k * 4 + row] * modelview[column * 4 + k];
      }
      m[column * 4 + row] = sum;
    }
  }
  // A sub-texel offset below 1/10,000 is below any sampler's weight precision.
  constexpr double tolerance = 1e-4;
  const auto near = [](double a, double b) { return std::abs(a - b) < tolerance; };
  if (!near(m[1], 0) || !near(m[4], 0) || !near(m[3], 0) || !near(m[7], 0) || !near(m[15], 1)) {
    return false;  // turned or in perspective
  }
  const auto windowX = [&](double x) { return viewport[0] + (m[0] * x + m[12] + 1) * viewport[2] / 2; };
  const auto windowY = [&](double y) { return viewport[1] + (m[5] * y + m[13] + 1) * viewport[3] / 2; };
  const double x0 = windowX(left);
  const double x1 = windowX(right);
  const double y0 = windowY(bottom);
  const double y1 = windowY(top);
  const double startX = std::min(x0, x1);
  const double startY = std::min(y0, y1);
  return near(std::abs(x1 - x0), width) && near(std::abs(y1 - y0), height) &&
         near(startX, std::round(startX)) && near(startY, std::round(startY));
}

// The billboard draws through GLSL rather than fixed-function texturing: Mesa's software rasterizer
// has a fast path for axis-aligned quads whose fragment shader only reads a 2D BGRA texture (nearest
// or bilinear) and perhaps multiplies it by a uniform, and its fixed-function shaders never qualify.
// The multiply costs that path a third more, so white, the usual tint, has a shader without it.
const char* const vertexShader =
    "varying vec2 position;"
    "void main() {"
    "  gl_Position = ftransform();"
    "  position = (gl_TextureMatrix[0] * gl_MultiTexCoord0).xy;"
    "}";

std::string fragmentShader(TextureTarget target, bool tinted) {
  const bool rectangle = target == TextureTarget::Rectangle;
  std::string source = rectangle ? "#extension GL_ARB_texture_rectangle : enable\n"
                                   "uniform sampler2DRect image;"
                                 : "uniform sampler2D image;";
  source += tinted ? "uniform vec4 tint;" : "";
  source += "varying vec2 position; void main() { gl_FragColor = ";
  source += rectangle ? "texture2DRect(image, position)" : "texture2D(image, position)";
  source += tinted ? " * tint; }" : "; }";
  return source;
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
  if (!image) {
    return true;
  }
  // Images without a texture of their own get a 2D one, which the fast path (see vertexShader) reads.
  const auto texture = gl->textureForImage(*image, TextureTarget::Texture2D);
  if (!texture) {
    return true;
  }
  double width = inputNumber("inputWidth");
  if (width == 0 && context.viewport().width > 0) {
    width = static_cast<double>(texture->width) / context.viewport().width * context.bounds().width;
  }
  const double height = width * texture->height / texture->width;
  const double x = inputNumber("inputX");
  const double y = inputNumber("inputY");
  const Color tint = valueForInputKey("inputColor").colorValue().value_or(Color{1, 1, 1, 1});
  const bool tinted = tint.red != 1 || tint.green != 1 || tint.blue != 1 || tint.alpha != 1;
  const unsigned program = gl->program(vertexShader, fragmentShader(texture->target, tinted));
  if (program == 0) {
    return false;
  }

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
  GLContext::bindTexture(*texture, 0, true);
  const GLenum target = GLContext::glTarget(texture->target);
  const GLint filter = coversWholePixels(x - width / 2, y - height / 2, x + width / 2, y + height / 2,
                                         texture->width, texture->height)
                           ? GL_NEAREST
                           : GL_LINEAR;
  glTexParameteri(target, GL_TEXTURE_MIN_FILTER, filter);
  glTexParameteri(target, GL_TEXTURE_MAG_FILTER, filter);
  GLint previousProgram = 0;
  glGetIntegerv(GL_CURRENT_PROGRAM, &previousProgram);
  glUseProgram(program);
  glUniform1i(glGetUniformLocation(program, "image"), 0);
  if (tinted) {
    // The texture holds premultiplied colour, so the tint is premultiplied too.
    glUniform4f(glGetUniformLocation(program, "tint"), static_cast<GLfloat>(tint.red * tint.alpha),
                static_cast<GLfloat>(tint.green * tint.alpha), static_cast<GLfloat>(tint.blue * tint.alpha),
                static_cast<GLfloat>(tint.alpha));
  }
  glBegin(GL_QUADS);
  glTexCoord2d(0, 0);
  glVertex2d(x - width / 2, y - height / 2);
  glTexCoord2d(1, 0);
  glVertex2d(x + width / 2, y - height / 2);
  glTexCoord2d(1, 1);
  glVertex2d(x + width / 2, y + height / 2);
  glTexCoord2d(0, 1);
  glVertex2d(x - width / 2, y + height / 2);
  glEnd();
  glUseProgram(static_cast<GLuint>(previousProgram));
  GLContext::unbindTexture(*texture, 0);
  glPopAttrib();
  return GLContext::takeError() == 0;
}

}  // namespace qva
