#include "patches/render/QVATexturedSquarePlugIn.h"

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>

#include "foundation/gl/GLContext.h"
#include "foundation/gl/PrefilteredTexture.h"
#include "foundation/gl/WindowTransform.h"
#include "framework/StringFormat.h"

namespace qva {

namespace {

// Reads a key of the per-frame arguments; null when the host passed none or the key is absent.
const PropertyList* argument(const Arguments& arguments, const char* key) {
  if (!arguments.is_object()) {
    return nullptr;
  }
  const auto found = arguments.find(key);
  return found == arguments.end() ? nullptr : &*found;
}

const char* errorText(GLenum error) {
  switch (error) {
    case GL_INVALID_ENUM:
      return "invalid enumerant";
    case GL_INVALID_VALUE:
      return "invalid value";
    case GL_INVALID_OPERATION:
      return "invalid operation";
    case GL_STACK_OVERFLOW:
      return "stack overflow";
    case GL_STACK_UNDERFLOW:
      return "stack underflow";
    case GL_OUT_OF_MEMORY:
      return "out of memory";
    case GL_INVALID_FRAMEBUFFER_OPERATION:
      return "invalid framebuffer operation";
    default:
      return nullptr;
  }
}

// The driver's GLSL wants the rectangle-texture extension named before the shaders' own text.
const char* const shaderPreamble = "#version 110\n#extension GL_ARB_texture_rectangle : enable\n";

unsigned compileShader(GLenum kind, const char* source) {
  const GLuint shader = glCreateShader(kind);
  const char* sources[2] = {shaderPreamble, source};
  glShaderSource(shader, 2, sources, nullptr);
  glCompileShader(shader);
  QVATexturedSquarePlugIn::printInfoLog(shader, __FILE__, __LINE__);
  return shader;
}

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

// GL's level of detail for the texture (textureWidth × textureHeight texels, under the given texture
// matrix) over the sprite's quad (w × h, centred on the modelview's origin, texture coordinates 0 to 1
// across it) placed in the window as given: log2 of the longest texel step per window pixel, plus the
// bias. Under an affine map that step is the same at every pixel; in perspective (no window transform)
// it is not, and there is no one answer.
std::optional<double> levelOfDetail(const std::optional<WindowTransform>& window, double w, double h,
                                    std::uint32_t textureWidth, std::uint32_t textureHeight,
                                    const GLdouble (&texture)[16], double bias) {
  if (!window || texture[3] != 0 || texture[7] != 0 || texture[15] != 1) {
    return std::nullopt;
  }
  const double determinant = window->xx * window->yy - window->xy * window->yx;
  if (determinant == 0 || w == 0 || h == 0) {
    return std::nullopt;
  }
  // Object units per window pixel along x and along y: the columns of the inverse linear map.
  const double alongX[2] = {window->yy / determinant, -window->yx / determinant};
  const double alongY[2] = {-window->xy / determinant, window->xx / determinant};
  // s runs from 0 to 1 across the width and t from 1 to 0 up the height, then the texture matrix.
  const auto texelStep = [&](const double(&step)[2]) {
    const double s = step[0] / w;
    const double t = -step[1] / h;
    return std::hypot((texture[0] * s + texture[4] * t) * textureWidth,
                      (texture[1] * s + texture[5] * t) * textureHeight);
  };
  const double detail = std::log2(std::max(texelStep(alongX), texelStep(alongY))) + bias;
  // Sizes of infinity or not a number give no level for GL to clamp to.
  return std::isfinite(detail) ? std::optional(detail) : std::nullopt;
}

// The texture's rows (t = 1/2 − y/h on the quad of the level of detail above, under an identity texture
// matrix) that the window's rows sample: one for each row of the viewport whose centre the quad may
// cover, and one more each side. Nothing where t changes along a window row, as when the quad is turned
// in the window's plane, or where the quad covers no row.
std::optional<PrefilteredTexture::Rows> windowRows(const WindowTransform& window, double h) {
  // With yx 0, object y, and so t, follows from window y alone: y = (window y − y0) / yy.
  const double scale = window.yy * h;
  if (window.yx != 0 || !std::isfinite(scale) || scale == 0) {
    return std::nullopt;
  }
  GLint viewport[4];
  glGetIntegerv(GL_VIEWPORT, viewport);
  const double extent = std::abs(scale) / 2;
  const double lowest = std::max(std::ceil(window.y0 - extent - 0.5) - 1, static_cast<double>(viewport[1]));
  const double highest =
      std::min(std::floor(window.y0 + extent - 0.5) + 1, static_cast<double>(viewport[1] + viewport[3] - 1));
  if (!(highest >= lowest)) {
    return std::nullopt;
  }
  // Window row r has its centre at r + 1/2.
  return PrefilteredTexture::Rows{static_cast<int>(highest - lowest) + 1,
                                  0.5 - (lowest + 0.5 - window.y0) / scale, -1 / scale};
}

constexpr GLdouble kIdentityMatrix[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

// A level of detail above 0 by a millionth gives the next level less weight than a sampler resolves,
// so GL's magnifying filter gives the same pixels.
bool magnified(std::optional<double> levelOfDetail) {
  return levelOfDetail && *levelOfDetail <= 1e-6;
}

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

const char* QVATexturedSquarePlugIn::vertexShaderSource() {
  return "void main(){gl_TexCoord[0] = gl_TextureMatrix[0] *  gl_MultiTexCoord0;gl_TexCoord[0].y =  "
         "gl_TexCoord[0].y/2.0;gl_TexCoord[0].z =  gl_TexCoord[0].y+0.5;\tgl_Position = "
         "gl_ModelViewProjectionMatrix * gl_Vertex;}";
}

const char* QVATexturedSquarePlugIn::fragmentShaderSource() {
  return "uniform sampler2DRect image;uniform float field_offset;void main(){\tfloat x = "
         "gl_TexCoord[0].x;\tfloat "
         "y1=(floor(gl_TexCoord[0].y)+field_offset)*2.0;\tfloat "
         "y2=(floor(gl_TexCoord[0].z)+field_offset)*2.0;\tvec4 "
         "color1 = texture2DRect(image, vec2(x, y1));\tvec4 color2 = texture2DRect(image, vec2(x, "
         "y2));\tgl_FragColor "
         "= mix(color1, color2, 0.5);}";
}

QVATexturedSquarePlugIn::QVATexturedSquarePlugIn() : Patch(patchClass()) {}

QVATexturedSquarePlugIn::~QVATexturedSquarePlugIn() = default;

void QVATexturedSquarePlugIn::printOGLError(const char* file, int line) {
  GLenum error = glGetError();
  if (error == GL_NO_ERROR) {
    return;
  }
  std::fprintf(stderr, "OpenGL error in file '%s', line %d: ", file, line);
  // A lost context keeps reporting errors; stop after a bounded number.
  for (int reported = 0; error != GL_NO_ERROR && reported < 32; ++reported, error = glGetError()) {
    if (const char* text = errorText(error)) {
      std::fprintf(stderr, "%s\n", text);
    } else {
      std::fprintf(stderr, "Unknown OpenGL error (%d)", static_cast<int>(error));
    }
  }
}

int QVATexturedSquarePlugIn::getUniLoc(unsigned program, const char* name) {
  const GLint location = glGetUniformLocation(program, name);
  if (location == -1) {
    std::fprintf(stderr, "No such uniform named \"%s\"\n", name);
  }
  printOGLError(__FILE__, __LINE__);
  return location;
}

void QVATexturedSquarePlugIn::printInfoLog(unsigned object, const char* file, int line) {
  GLint length = 0;
  const bool isShader = glIsShader(object) == GL_TRUE;
  if (isShader) {
    glGetShaderiv(object, GL_INFO_LOG_LENGTH, &length);
  } else {
    glGetProgramiv(object, GL_INFO_LOG_LENGTH, &length);
  }
  if (length < 1) {
    return;
  }
  char log[1000] = {};
  GLsizei written = 0;
  if (isShader) {
    glGetShaderInfoLog(object, sizeof log, &written, log);
  } else {
    glGetProgramInfoLog(object, sizeof log, &written, log);
  }
  std::fprintf(stderr, "----Shader error log file'%s', line %d:\n%s----log end----\n", file, line, log);
}

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

void QVATexturedSquarePlugIn::renderQuad(double height, double width) {
  glActiveTexture(GL_TEXTURE0);
  glBegin(GL_QUADS);
  glTexCoord2d(1, 0);
  glVertex2d(width, height);
  glTexCoord2d(0, 0);
  glVertex2d(0, height);
  glTexCoord2d(0, 1);
  glVertex2d(0, 0);
  glTexCoord2d(1, 1);
  glVertex2d(width, 0);
  glEnd();
}

bool QVATexturedSquarePlugIn::createTexture(ExecutionContext& context, const std::string& /*colorSpace*/,
                                            const ImageRef& image, const ImageRef& mask,
                                            const Rect& /*bounds*/, bool fieldEven) {
  GLContext* gl = context.glContext();
  if (sp == 0) {
    vs = compileShader(GL_VERTEX_SHADER, vertexShaderSource());
    fs = compileShader(GL_FRAGMENT_SHADER, fragmentShaderSource());
    sp = glCreateProgram();
    glAttachShader(sp, vs);
    glAttachShader(sp, fs);
    glLinkProgram(sp);
    printInfoLog(sp, __FILE__, __LINE__);
    glDeleteShader(vs);
    glDeleteShader(fs);
  }
  const bool interlaced = inputBoolean("inputInterlaced");
  // The field matters only to the de-interlacing pass.
  const Prepared wanted{image, mask, interlaced, interlaced && fieldEven, inputBoolean("inputMipmapping")};
  if (_textureName != 0 && wanted == _prepared) {
    return true;
  }
  const auto texture = gl->textureForImage(*image);
  if (!texture) {
    return false;
  }
  const auto maskTexture = mask ? gl->textureForImage(*mask) : std::nullopt;

  const auto width = static_cast<std::uint32_t>(texture->width);
  const auto height = static_cast<std::uint32_t>(texture->height);
  GLint bound = 0;
  if (width != _fboWidth || height != _fboHeight) {
    _fboWidth = width;
    _fboHeight = height;
    _aspectRatio = static_cast<float>(width) / static_cast<float>(height);
    if (_textureName != 0) {
      glDeleteTextures(1, &_textureName);
    }
    if (_fboName != 0) {
      glDeleteFramebuffers(1, &_fboName);
    }
    glGenTextures(1, &_textureName);
    glHint(GL_GENERATE_MIPMAP_HINT, GL_NICEST);
    glBindTexture(GL_TEXTURE_2D, _textureName);
    // RGBA, 8 bits a channel, stored in the order the fast path for textured quads reads.
    GLContext::specifyTexture(GL_TEXTURE_2D, texture->width, texture->height, nullptr);
    glGenFramebuffers(1, &_fboName);
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &bound);
    _oldfboname = static_cast<std::uint32_t>(bound);
    glBindFramebuffer(GL_FRAMEBUFFER, _fboName);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, _textureName, 0);
  } else {
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &bound);
    _oldfboname = static_cast<std::uint32_t>(bound);
    glBindFramebuffer(GL_FRAMEBUFFER, _fboName);
  }
  printOGLError(__FILE__, __LINE__);

  GLint viewport[4];
  GLint matrixMode = GL_MODELVIEW;
  glGetIntegerv(GL_VIEWPORT, viewport);
  glGetIntegerv(GL_MATRIX_MODE, &matrixMode);
  glViewport(0, 0, texture->width, texture->height);
  glMatrixMode(GL_PROJECTION);
  glPushMatrix();
  glLoadIdentity();
  glOrtho(0, texture->width, 0, texture->height, -1, 1);
  glMatrixMode(GL_MODELVIEW);
  glPushMatrix();
  glLoadIdentity();

  const GLenum target = GLContext::glTarget(texture->target);
  GLContext::bindTexture(*texture, 0, true);
  glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
  glDisable(GL_DEPTH_TEST);
  glDisable(GL_SCISSOR_TEST);
  glDisable(GL_ALPHA_TEST);
  glDisable(GL_BLEND);
  glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
  glTexParameteri(target, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
  glTexParameteri(target, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
  if (interlaced) {
    glUseProgram(sp);
    glUniform1f(getUniLoc(sp, "field_offset"), fieldEven ? 0.75f : 0.25f);
    glUniform1i(getUniLoc(sp, "image"), 0);
  }
  renderQuad(texture->height, texture->width);
  glUseProgram(0);
  GLContext::unbindTexture(*texture, 0);

  if (maskTexture) {
    // Only alpha is written, and the mask is never de-interlaced.
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_TRUE);
    GLContext::bindTexture(*maskTexture, 0, true);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
    renderQuad(texture->height, texture->width);
    GLContext::unbindTexture(*maskTexture, 0);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
  }

  glBindFramebuffer(GL_FRAMEBUFFER, _oldfboname);
  glMatrixMode(GL_MODELVIEW);
  glPopMatrix();
  glMatrixMode(GL_PROJECTION);
  glPopMatrix();
  glMatrixMode(static_cast<GLenum>(matrixMode));
  glViewport(viewport[0], viewport[1], viewport[2], viewport[3]);

  glBindTexture(GL_TEXTURE_2D, _textureName);
  if (wanted.mipmapped) {
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    glGenerateMipmap(GL_TEXTURE_2D);
  } else {
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  }
  printOGLError(__FILE__, __LINE__);
  _prepared = wanted;
  forgetPrefiltered();
  return true;
}

const PrefilteredTexture* QVATexturedSquarePlugIn::filterMipmaps(double w, double h) {
  // GL clamps the bias to its maximum (unknown, and so not applied, when execution was enabled
  // without GL).
  const double limit = _maxLODbias > 0 ? _maxLODbias : HUGE_VAL;
  const double bias = std::clamp(inputNumber("inputLODbias"), -limit, limit);
  GLdouble textureMatrix[16];
  glGetDoublev(GL_TEXTURE_MATRIX, textureMatrix);
  const auto window = WindowTransform::current();
  const auto detail = levelOfDetail(window, w, h, _fboWidth, _fboHeight, textureMatrix, bias);
  // Where GL would sample with the magnifying filter anyway, saying so lets the quad take the
  // software rasterizer's fast path, which reads no mipmaps.
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER,
                  magnified(detail) ? GL_LINEAR : GL_LINEAR_MIPMAP_LINEAR);
  // Where the level of detail is the same at every pixel, clamping to it gives GL's exact value: the
  // driver may approximate its own (Mesa's software rasterizer by up to a tenth of a level), and a
  // bake, which has the exact value, would then differ from the frames around it. The anisotropic
  // filter chooses its level differently.
  const bool anisotropic = inputIndex("inputAnisotropy") > 1;
  const bool pinned = detail && !anisotropic;
  glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MIN_LOD, pinned ? static_cast<GLfloat>(*detail) : -1000.0f);
  glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MAX_LOD, pinned ? static_cast<GLfloat>(*detail) : 1000.0f);

  // Baking samples the filter once for each texel of the bake, so only a texture drawn at the same
  // level of detail as the frame before is baked; a zooming sprite, or video, keeps sampling the
  // mipmaps. A sprite on the same window rows as the frame before, at rest or moving sideways, is baked
  // on those rows, which the fast path draws at about the cost of a texture not scaled vertically;
  // otherwise on the grid's rows, twice as many as the level's. The bake holds the texture's
  // coordinates from 0 to 1 only, which the quad spans under an identity texture matrix.
  const bool identity = std::equal(std::begin(textureMatrix), std::end(textureMatrix),
                                   std::begin(kIdentityMatrix), std::end(kIdentityMatrix));
  const bool steady = pinned && detail == _steady.levelOfDetail && !magnified(detail) && identity;
  const auto rows = window && identity ? windowRows(*window, h) : std::nullopt;
  const auto bakedRows = rows == _steady.rows ? rows : std::nullopt;
  _steady = {detail, rows};
  if (!steady) {
    return nullptr;
  }
  if (!_prefiltered || _prefiltered->levelOfDetail() != *detail || _prefiltered->rows() != bakedRows) {
    _prefiltered = PrefilteredTexture::bake(_textureName, static_cast<int>(_fboWidth),
                                            static_cast<int>(_fboHeight), *detail, bakedRows);
  }
  return _prefiltered ? &*_prefiltered : nullptr;
}

void QVATexturedSquarePlugIn::forgetPrefiltered() {
  _prefiltered.reset();
  _steady = {};
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
  if (const PropertyList* field = argument(arguments, "interlaceField")) {
    even = propertyListInteger(*field) != 0;
  }
  const PropertyList* invert = argument(arguments, "invertFields");
  const bool invertFields = invert != nullptr && propertyListInteger(*invert) != 0;
  if (invertFields) {
    even = !even;
  }
  createTexture(context, context.colorSpace(), image, valueForInputKey("inputMask").imageValue(),
                context.bounds(), even);

  if (_textureName != 0) {
    glEnable(GL_TEXTURE_2D);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, _textureName);
    glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MAX_ANISOTROPY_EXT,
                    static_cast<GLfloat>(inputIndex("inputAnisotropy")));
    printOGLError(__FILE__, __LINE__);
  }
  const double w = inputNumber("inputWidth") == 0 ? _aspectRatio : inputNumber("inputWidth");
  const double h = inputNumber("inputHeight") == 0 ? 1.0 : inputNumber("inputHeight");

  GLint matrixMode = GL_MODELVIEW;
  glGetIntegerv(GL_MATRIX_MODE, &matrixMode);
  glMatrixMode(GL_MODELVIEW);
  glPushMatrix();
  glTranslated(inputNumber("inputX"), inputNumber("inputY"), inputNumber("inputZ"));

  const PropertyList* opacityArgument = argument(arguments, "opacity");
  const PropertyList* alphaArgument = argument(arguments, "alpha");
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
  glEnable(GL_POLYGON_SMOOTH);
  glHint(GL_POLYGON_SMOOTH_HINT, GL_NICEST);
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
  const PrefilteredTexture* prefiltered = _prepared.mipmapped ? filterMipmaps(w, h) : nullptr;
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
      _textureName != 0 ? context.glContext()->texturingProgram(TextureTarget::Texture2D, !tint.white()) : 0;
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
  const PropertyList* textureHeight = argument(arguments, "textureHeight");
  const PropertyList* textureFormat = argument(arguments, "textureFormat");
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
  if (_textureName != 0) {
    glDeleteTextures(1, &_textureName);
    _textureName = 0;
  }
  if (_fboName != 0) {
    glDeleteFramebuffers(1, &_fboName);
    _fboName = 0;
  }
  _fboWidth = _fboHeight = 0;
  _prepared = {};
  forgetPrefiltered();
  if (sp != 0) {
    glDeleteProgram(sp);
    sp = 0;
  }
}

}  // namespace qva
