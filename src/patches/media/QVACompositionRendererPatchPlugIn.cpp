#include "patches/media/QVACompositionRendererPatchPlugIn.h"

#include <epoxy/gl.h>

#include "framework/ExecuteArguments.h"

namespace qva {

const PatchClass& QVACompositionRendererPatchPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVACompositionRendererPatchPlugIn";
    c.name = "QVA Composition Renderer Patch";
    c.description = "QVACompositionRendererPatch description";
    c.executionMode = ExecutionMode::Consumer;
    c.timeMode = TimeMode::None;
    // Only the positions and the size are drawn with; the rest are shown to the user and not read.
    c.inputs = {
        PortDescription::port("inputXPosition", PortType::Number, "X Position", Value(0.0)),
        PortDescription::port("inputYPosition", PortType::Number, "Y Position", Value(0.0)),
        PortDescription::port("inputZPosition", PortType::Number, "Z Position", Value(0.0)),
        PortDescription::port("inputXRotation", PortType::Number, "X Rotation", Value(0.0)),
        PortDescription::port("inputYRotation", PortType::Number, "Y Rotation", Value(0.0)),
        PortDescription::port("inputZRotation", PortType::Number, "Z Rotation", Value(0.0)),
        PortDescription::port("inputOpacity", PortType::Number, "Opacity", Value(0.0)),
        PortDescription::port("inputWidth", PortType::Number, "Width", Value(0.0)),
        PortDescription::port("inputHeight", PortType::Number, "Height", Value(0.0)),
        PortDescription::port("inputPixelsWide", PortType::Index, "Pixels Wide", Value(std::uint32_t{0})),
        PortDescription::port("inputPixelsHigh", PortType::Index, "Pixels High", Value(std::uint32_t{0})),
        PortDescription::port("inputColor", PortType::Color, "Color"),
    };
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVACompositionRendererPatchPlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVACompositionRendererPatchPlugIn::QVACompositionRendererPatchPlugIn() : QVAPlugIn(patchClass()) {}

QVACompositionRendererPatchPlugIn::~QVACompositionRendererPatchPlugIn() = default;

bool QVACompositionRendererPatchPlugIn::execute(ExecutionContext& context, double /*time*/,
                                                const Arguments& arguments) {
  const auto name = static_cast<GLuint>(ExecuteArguments::unsignedInteger(arguments, "texture"));
  const auto target = static_cast<GLenum>(ExecuteArguments::unsignedInteger(arguments, "textureTarget"));
  if (!arguments.is_object() || name == 0 || target == 0 || context.glContext() == nullptr) {
    return true;
  }
  const double x = inputNumber("inputXPosition");
  double y = inputNumber("inputYPosition");
  const double z = inputNumber("inputZPosition");
  const double hw = inputNumber("inputWidth") * 0.5;
  const double h = inputNumber("inputHeight");
  const double textureWidth = ExecuteArguments::number(arguments, "textureWidth");
  const double textureHeight = ExecuteArguments::number(arguments, "textureHeight");
  // Rectangle textures are addressed in texels, 2D ones from 0 to 1.
  const bool twoD = target == GL_TEXTURE_2D;
  const double tw = twoD ? 1.0 : textureWidth;
  const double th = twoD ? 1.0 : textureHeight;
  const double g = ExecuteArguments::number(arguments, "glCoordPerYPixel");
  const double o = ExecuteArguments::number(arguments, "textureOffset") * g;
  const double hh = 0.5 * h - o;
  const double opacity = ExecuteArguments::number(arguments, "opacity");
  const double alpha = ExecuteArguments::number(arguments, "alpha");

  glPushAttrib(GL_ENABLE_BIT | GL_COLOR_BUFFER_BIT | GL_CURRENT_BIT | GL_LINE_BIT | GL_TEXTURE_BIT);
  glEnable(target);
  glDisable(twoD ? GL_TEXTURE_RECTANGLE : GL_TEXTURE_2D);
  if (!videoRenderer) {
    videoRenderer = QVALumoRunVideoRenderer::createWithContext(
        context.glContext(), twoD ? TextureTarget::Texture2D : TextureTarget::Rectangle);
  }
  if (ExecuteArguments::boolean(arguments, "invertFields")) {
    // The top raster line goes black and the picture one line down, so the other field lands in place.
    glColor4d(0, 0, 0, alpha);
    glLineWidth(1.0f);
    glBegin(GL_LINES);
    glVertex3d(x - hw, y + hh - 0.5 * g, z);
    glVertex3d(x + hw, y + hh - 0.5 * g, z);
    glEnd();
    y -= g;
  }
  glColor4d(opacity, opacity, opacity, alpha);
  glBindTexture(target, name);
  glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
  glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
  glEnable(GL_BLEND);
  videoRenderer->guessColorSpaceFromAttributes(arguments);
  videoRenderer->beforeRenderWithMode(0, static_cast<long long>(textureHeight),
                                      ExecuteArguments::unsignedInteger(arguments, "textureFormat"));
  glBegin(GL_QUADS);
  glTexCoord2d(0, th);
  glVertex3d(x - hw, y - hh, z);
  glTexCoord2d(0, 0);
  glVertex3d(x - hw, y + hh, z);
  glTexCoord2d(tw, 0);
  glVertex3d(x + hw, y + hh, z);
  glTexCoord2d(tw, th);
  glVertex3d(x + hw, y - hh, z);
  glEnd();
  glBindTexture(target, 0);
  videoRenderer->afterRender();
  glDisable(target);
  glPopAttrib();
  return true;
}

void QVACompositionRendererPatchPlugIn::stopExecution(ExecutionContext& /*context*/) {
  if (videoRenderer) {
    videoRenderer->cleanUp();
  }
}

}  // namespace qva
