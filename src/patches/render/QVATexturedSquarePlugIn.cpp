#include "patches/render/QVATexturedSquarePlugIn.h"

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>

#include "foundation/gl/GLContext.h"
#include "framework/ExecuteArguments.h"
#include "framework/StringFormat.h"

namespace qva {

namespace {

// The colour the texture is multiplied by, clamped to [0, 1] as GL clamps a vertex colour.
struct Tint {
  explicit Tint(const Color& color)
      : red(clampUnit(color.red)),
        green(clampUnit(color.green)),
        blue(clampUnit(color.blue)),
        alpha(clampUnit(color.alpha)) {}
  bool white() const { return red == 1 && green == 1 && blue == 1 && alpha == 1; }
  static float clampUnit(double value) { return static_cast<float>(std::clamp(value, 0.0, 1.0)); }

  float red;
  float green;
  float blue;
  float alpha;
};

}  // namespace

const PatchClass& QVATexturedSquarePlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVATexturedSquarePlugIn";
    c.name = "QVA Sprite";
    c.description =
        "A replacment for the standard Sprite patch with support for interlaced-aware scaling of video "
        "material, masking and basic filtering options.";
    c.executionMode = ExecutionMode::Consumer;
    c.timeMode = TimeMode::None;
    c.inputs = {
        PortDescription::port("inputX", PortType::Number, "X Position"),
        PortDescription::port("inputY", PortType::Number, "Y Position"),
        PortDescription::port("inputZ", PortType::Number, "Z Position"),
        PortDescription::port("inputRotX", PortType::Number, "X Rotation"),
        PortDescription::port("inputRotY", PortType::Number, "Y Rotation"),
        PortDescription::port("inputRotZ", PortType::Number, "Z Rotation"),
        PortDescription::port("inputWidth", PortType::Number, "Width", Value(0.0)),
        PortDescription::port("inputHeight", PortType::Number, "Height", Value(0.0)),
        PortDescription::port("inputColor", PortType::Color, "Color"),
        PortDescription::port("inputImage", PortType::Image, "Image"),
        PortDescription::port("inputMask", PortType::Image, "Mask Image"),
        PortDescription::port("inputBlending", PortType::Index, "Blending")
            .withMaximum(2)
            .withMenu({"Replace", "Over", "Add"}),
        PortDescription::port("inputDepth", PortType::Index, "Depth Test")
            .withMaximum(2)
            .withMenu({"None", "Read/Write", "Read-Only"}),
        PortDescription::port("inputLODbias", PortType::Number, "LOD Bias", Value(0.0))
            .withMinimum(-8.0)
            .withMaximum(8.0),
        PortDescription::port("inputAnisotropy", PortType::Number, "Anisotropy", Value(std::uint32_t{1}))
            .withMinimum(1)
            .withMaximum(16),
        PortDescription::port("inputMipmapping", PortType::Boolean, "Use Mipmapping", Value(true)),
        PortDescription::port("inputInterlaced", PortType::Boolean, "Interlaced Source", Value(true)),
        PortDescription::port("inputFieldEven", PortType::Boolean, "Output Even Field", Value(true)),
    };
    c.sortedPropertyPortKeys = std::vector<std::string>{
        "inputX",          "inputY",          "inputZ",        "inputRotX",    "inputRotY",
        "inputRotZ",       "inputWidth",      "inputHeight",   "inputColor",   "inputImage",
        "inputMask",       "inputBlending",   "inputDepth",    "inputLODbias", "inputAnisotropy",
        "inputMipmapping", "inputInterlaced", "inputFieldEven"};
    c.create = [] { return std::make_unique<QVATexturedSquarePlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVATexturedSquarePlugIn::QVATexturedSquarePlugIn() : Patch(patchClass()) {}

QVATexturedSquarePlugIn::~QVATexturedSquarePlugIn() = default;

void QVATexturedSquarePlugIn::enableExecution(ExecutionContext& context) {
  if (context.glContext() == nullptr) {
    return;
  }
  GLfloat anisotropy = 0;
  glGetFloatv(GL_MAX_TEXTURE_MAX_ANISOTROPY_EXT, &anisotropy);
  _maxAnisotropy = anisotropy < 1 ? 1 : static_cast<std::int32_t>(anisotropy);
  glGetFloatv(GL_MAX_TEXTURE_LOD_BIAS_EXT, &_maxLODbias);
  GLContext::takeError();
}

bool QVATexturedSquarePlugIn::createTexture(ExecutionContext& context, const std::string& /*colorSpace*/,
                                            const ImageRef& image, const ImageRef& mask,
                                            const Rect& /*bounds*/, bool fieldEven) {
  const bool interlaced = inputBoolean("inputInterlaced");
  // The field matters only to the de-interlacing pass.
  const Prepared wanted{image, mask, interlaced, interlaced && fieldEven, inputBoolean("inputMipmapping")};
  if (_target && wanted == _prepared) {
    return true;
  }
  GLContext* gl = context.glContext();
  const auto texture = gl->textureForImage(*image);
  if (!texture) {
    return false;
  }
  const auto maskTexture = mask ? gl->textureForImage(*mask) : std::nullopt;
  if (!_target || _target->width() != texture->width || _target->height() != texture->height) {
    _target.reset();
    _prepared = {};
    forgetPrefiltered();
    _target = Framebuffer::create(texture->width, texture->height, TextureTarget::Texture2D, false);
    if (!_target) {
      logMessage(formatString("no %dx%d texture for the image: the GL driver refuses one of that size",
                              texture->width, texture->height));
      return false;
    }
    _aspectRatio = static_cast<float>(texture->width) / static_cast<float>(texture->height);
    glBindTexture(GL_TEXTURE_2D, _target->texture().name);
    // The texture repeats, as a new GL texture does, which the linear filter shows at the quad's edges.
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);
    glHint(GL_GENERATE_MIPMAP_HINT, GL_NICEST);
  }
  const std::optional<std::string> problem =
      _deinterlacing.copy(*_target, *texture, maskTexture ? &*maskTexture : nullptr,
                          interlaced ? std::optional(fieldEven) : std::nullopt);
  if (problem) {
    logMessage(*problem);
  }
  glBindTexture(GL_TEXTURE_2D, _target->texture().name);
  if (wanted.mipmapped) {
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    glGenerateMipmap(GL_TEXTURE_2D);
  } else {
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  }
  _prepared = wanted;
  forgetPrefiltered();
  return true;
}

void QVATexturedSquarePlugIn::forgetPrefiltered() {
  _mipmaps.forget();
  _drewPrefiltered = nullptr;
}

bool QVATexturedSquarePlugIn::execute(ExecutionContext& context, double /*time*/,
                                      const Arguments& arguments) {
  if (context.glContext() == nullptr) {
    return false;
  }
  const ImageRef image = valueForInputKey("inputImage").imageValue();
  if (!image) {
    return true;
  }
  if (const std::uint32_t depth = inputIndex("inputDepth"); depth == 1 || depth == 2) {
    context.requestDepthBuffer();
  }
  glPushAttrib(GL_ALL_ATTRIB_BITS);

  bool even = inputBoolean("inputFieldEven");
  if (const PropertyList* field = ExecuteArguments::find(arguments, "interlaceField")) {
    even = propertyListInteger(*field) != 0;
  }
  const PropertyList* invert = ExecuteArguments::find(arguments, "invertFields");
  const bool invertFields = invert != nullptr && propertyListInteger(*invert) != 0;
  if (invertFields) {
    even = !even;
  }
  createTexture(context, context.colorSpace(), image, valueForInputKey("inputMask").imageValue(),
                context.bounds(), even);

  if (_target) {
    glEnable(GL_TEXTURE_2D);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, _target->texture().name);
    glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MAX_ANISOTROPY_EXT,
                    static_cast<GLfloat>(inputIndex("inputAnisotropy")));
    // A driver without anisotropic filtering draws the sprite all the same.
    if (const unsigned error = GLContext::takeError(); error != 0) {
      logMessage(formatString("OpenGL error %04X setting the anisotropy", error));
    }
  }
  const double w = inputNumber("inputWidth") == 0 ? _aspectRatio : inputNumber("inputWidth");
  const double h = inputNumber("inputHeight") == 0 ? 1.0 : inputNumber("inputHeight");

  GLint matrixMode = GL_MODELVIEW;
  glGetIntegerv(GL_MATRIX_MODE, &matrixMode);
  glMatrixMode(GL_MODELVIEW);
  glPushMatrix();
  glTranslated(inputNumber("inputX"), inputNumber("inputY"), inputNumber("inputZ"));

  const PropertyList* opacityArgument = ExecuteArguments::find(arguments, "opacity");
  const PropertyList* alphaArgument = ExecuteArguments::find(arguments, "alpha");
  const bool withArguments = arguments.is_object();
  const double opacity = withArguments ? (opacityArgument ? propertyListDouble(*opacityArgument) : 0.0) : 1.0;
  const double alpha = withArguments ? (alphaArgument ? propertyListDouble(*alphaArgument) : 0.0) : 1.0;

  if (invertFields) {
    // Paint the vacated top line black and move the picture down a line, so that the inverted field
    // lands on the right raster line.
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    const double d = h / (viewport[3] > 0 ? viewport[3] : 1);
    glLineWidth(1.0f);
    glColor4d(0, 0, 0, alpha);
    glBegin(GL_LINES);
    glVertex3d(w / 2, h / 2 - d / 2, 0);
    glVertex3d(-w / 2, h / 2 - d / 2, 0);
    glEnd();
    glTranslated(0, -d, 0);
  }
  glRotated(inputNumber("inputRotX"), 1, 0, 0);
  glRotated(inputNumber("inputRotY"), 0, 1, 0);
  glRotated(inputNumber("inputRotZ"), 0, 0, 1);
  glTexEnvf(GL_TEXTURE_FILTER_CONTROL, GL_TEXTURE_LOD_BIAS,
            static_cast<GLfloat>(inputNumber("inputLODbias")));
  const Tint tint(withArguments ? Color{opacity, opacity, opacity, alpha}
                                : valueForInputKey("inputColor").colorValue().value_or(Color{1, 1, 1, 1}));
  GLContext::tintTexturing(tint.red, tint.green, tint.blue, tint.alpha);
  // No polygon smoothing: drivers that honour it (llvmpipe does not) blend each triangle's edge
  // coverage into alpha, so the quad's shared diagonal is drawn twice, half covered, as a light line,
  // and edge pixels lose alpha.
  switch (inputIndex("inputDepth")) {
    case 2:
      glEnable(GL_ALPHA_TEST);
      glAlphaFunc(GL_GREATER, 0.5f);
      glEnable(GL_DEPTH_TEST);
      glDepthFunc(GL_LEQUAL);
      glDepthMask(GL_FALSE);
      break;
    case 1:
      glEnable(GL_DEPTH_TEST);
      glEnable(GL_ALPHA_TEST);
      glAlphaFunc(GL_GREATER, 0.5f);
      glDepthMask(GL_TRUE);
      glDepthFunc(GL_LEQUAL);
      break;
    default:
      glDisable(GL_DEPTH_TEST);
      glDepthMask(GL_FALSE);
      break;
  }
  glEnable(GL_BLEND);
  // Replace still scales the source by its alpha, as the original blend does.
  switch (inputIndex("inputBlending")) {
    case 2:
      glBlendFunc(GL_SRC_ALPHA, GL_ONE);
      break;
    case 1:
      glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
      break;
    default:
      glBlendFunc(GL_SRC_ALPHA, GL_ZERO);
      break;
  }
  glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
  // GL clamps the bias to its maximum (unknown, and so not applied, when execution was enabled
  // without GL).
  const double biasLimit = _maxLODbias > 0 ? _maxLODbias : HUGE_VAL;
  const PrefilteredTexture* prefiltered =
      _prepared.mipmapped
          ? _mipmaps.prepare(_target->texture().name, _target->width(), _target->height(), w, h,
                             std::clamp(inputNumber("inputLODbias"), -biasLimit, biasLimit),
                             inputIndex("inputAnisotropy") > 1)
          : nullptr;
  _drewPrefiltered = prefiltered;
  if (prefiltered != nullptr) {
    glBindTexture(GL_TEXTURE_2D, prefiltered->texture());
    glMatrixMode(GL_TEXTURE);
    glPushMatrix();
    prefiltered->loadTextureMatrix();
  }
  // The same pixels as the texture environment set above, through GLSL for the fast path (see
  // GLContext::texturingProgram); without the program the environment draws, and without a texture
  // the quad is plain colour.
  const unsigned program =
      _target ? context.glContext()->texturingProgram(TextureTarget::Texture2D, !tint.white()) : 0;
  GLint previousProgram = 0;
  glGetIntegerv(GL_CURRENT_PROGRAM, &previousProgram);
  glUseProgram(program);
  if (program != 0) {
    glUniform1i(glGetUniformLocation(program, "image"), 0);
    if (!tint.white()) {
      glUniform4f(glGetUniformLocation(program, "tint"), tint.red, tint.green, tint.blue, tint.alpha);
    }
  }
  if (!videoRenderer) {
    videoRenderer = QVALumoRunVideoRenderer::createWithContext(context.glContext(), TextureTarget::Texture2D);
  }
  videoRenderer->guessColorSpaceFromAttributes(arguments);
  const PropertyList* textureHeight = ExecuteArguments::find(arguments, "textureHeight");
  const PropertyList* textureFormat = ExecuteArguments::find(arguments, "textureFormat");
  videoRenderer->beforeRenderWithMode(
      0, textureHeight ? propertyListInteger(*textureHeight) : 0,
      textureFormat ? static_cast<unsigned long long>(propertyListInteger(*textureFormat)) : 0);
  glBegin(GL_QUADS);
  glTexCoord2d(1, 0);
  glVertex3d(w / 2, h / 2, 0);
  glTexCoord2d(0, 0);
  glVertex3d(-w / 2, h / 2, 0);
  glTexCoord2d(0, 1);
  glVertex3d(-w / 2, -h / 2, 0);
  glTexCoord2d(1, 1);
  glVertex3d(w / 2, -h / 2, 0);
  glEnd();
  glUseProgram(static_cast<GLuint>(previousProgram));
  videoRenderer->afterRender();
  if (prefiltered != nullptr) {
    glMatrixMode(GL_TEXTURE);
    glPopMatrix();
  }
  glMatrixMode(GL_MODELVIEW);
  glPopMatrix();
  glMatrixMode(static_cast<GLenum>(matrixMode));
  glPopAttrib();

  if (const GLenum error = glGetError(); error != GL_NO_ERROR) {
    logMessage(formatString("OpenGL error %04X", static_cast<unsigned>(error)));
    return false;
  }
  return true;
}

void QVATexturedSquarePlugIn::stopExecution(ExecutionContext& /*context*/) {
  _target.reset();
  _prepared = {};
  forgetPrefiltered();
  _deinterlacing = DeinterlacingPass();
}

}  // namespace qva
