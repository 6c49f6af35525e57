#include "host/HostBillboard.h"

#include <epoxy/gl.h>

#include "foundation/gl/GLContext.h"

namespace qva {

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
  const auto texture = gl->textureForImage(*image);
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
  glTexParameteri(target, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  glTexParameteri(target, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
  // The texture holds premultiplied colour, so the tint is premultiplied too.
  GLContext::tintTexturing(tint.red * tint.alpha, tint.green * tint.alpha, tint.blue * tint.alpha,
                           tint.alpha);
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
  GLContext::unbindTexture(*texture, 0);
  glPopAttrib();
  return GLContext::takeError() == 0;
}

}  // namespace qva
