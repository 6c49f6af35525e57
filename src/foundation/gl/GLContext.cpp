#include "foundation/gl/GLContext.h"

#include <X11/Xlib.h>
#include <dlfcn.h>
#include <epoxy/egl.h>
#include <epoxy/gl.h>
#include <sched.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "foundation/gl/Framebuffer.h"
#include "foundation/gl/GLProgram.h"
#include "foundation/image/Bitmap.h"

namespace qva {

// Textures of images drawn on demand that have gone, a few of them, newest last: taking one of the right
// kind and size for the next image to draw into spares making a texture and the driver's first touch of
// its memory. The context deletes its textures with itself.
class GLContext::SpareTextures {
 public:
  void give(const TextureView& texture) {
    if (textures_.size() == kKept) {
      glDeleteTextures(1, &textures_.front().name);
      textures_.erase(textures_.begin());
    }
    textures_.push_back(texture);
  }

  std::optional<TextureView> take(TextureTarget target, int width, int height) {
    for (auto spare = textures_.rbegin(); spare != textures_.rend(); ++spare) {
      if (spare->target == target && spare->width == width && spare->height == height) {
        const TextureView taken = *spare;
        textures_.erase(std::next(spare).base());
        return taken;
      }
    }
    return std::nullopt;
  }

 private:
  static constexpr std::size_t kKept = 4;
  std::vector<TextureView> textures_;
};

// What the context made of an image: textures it owns and/or pixels read back.
class GLContext::Converted final : public Image::Representation {
 public:
  explicit Converted(std::weak_ptr<SpareTextures> spares) : spares_(std::move(spares)) {}
  ~Converted() override {
    const auto spares = spares_.lock();
    if (!spares) {
      return;
    }
    for (TextureView& texture : textures) {
      if (texture.name != 0 && drawn) {
        spares->give(texture);
      } else if (texture.name != 0) {
        glDeleteTextures(1, &texture.name);
      }
    }
  }
  Converted(const Converted&) = delete;
  Converted& operator=(const Converted&) = delete;

  // One texture of each kind, indexed by TextureTarget.
  std::array<TextureView, 2> textures;
  // Whether the textures hold a drawing rather than uploaded pixels.
  bool drawn = false;
  std::optional<Bitmap> pixels;

 private:
  std::weak_ptr<SpareTextures> spares_;
};

namespace {

bool hasExtension(const char* list, const char* name) {
  if (list == nullptr) {
    return false;
  }
  const std::size_t length = std::strlen(name);
  for (const char* at = std::strstr(list, name); at != nullptr; at = std::strstr(at + 1, name)) {
    if ((at == list || at[-1] == ' ') && (at[length] == ' ' || at[length] == '\0')) {
      return true;
    }
  }
  return false;
}

EGLDisplay initialised(const std::vector<std::pair<EGLenum, void*>>& candidates) {
  for (const auto& [platform, native] : candidates) {
    EGLDisplay display = eglGetPlatformDisplayEXT(platform, native, nullptr);
    EGLint major = 0;
    EGLint minor = 0;
    if (display != EGL_NO_DISPLAY && eglInitialize(display, &major, &minor)) {
      return display;
    }
  }
  return EGL_NO_DISPLAY;
}

EGLDisplay openOffscreenDisplay(const char* clientExtensions, std::string& error) {
  std::vector<std::pair<EGLenum, void*>> candidates;
  if (hasExtension(clientExtensions, "EGL_MESA_platform_surfaceless")) {
    candidates.emplace_back(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY);
  }
  if (hasExtension(clientExtensions, "EGL_EXT_platform_device") &&
      hasExtension(clientExtensions, "EGL_EXT_device_enumeration")) {
    EGLDeviceEXT devices[16];
    EGLint count = 0;
    if (eglQueryDevicesEXT(16, devices, &count)) {
      for (EGLint i = 0; i < count; ++i) {
        candidates.emplace_back(EGL_PLATFORM_DEVICE_EXT, devices[i]);
      }
    }
  }
  if (candidates.empty()) {
    error =
        "EGL has neither the surfaceless nor the device platform (EGL_MESA_platform_surfaceless, "
        "EGL_EXT_platform_device)";
    return EGL_NO_DISPLAY;
  }
  EGLDisplay display = initialised(candidates);
  if (display == EGL_NO_DISPLAY) {
    error = "no EGL display could be initialised (is a Mesa or GPU EGL driver installed, e.g. libegl-mesa0?)";
  }
  return display;
}

// A display on a connection of its own to the X server DISPLAY names, which the connection keeps
// initialised while it lives: a display the driver opened itself would stay tied to the first server.
EGLDisplay openWindowSystemDisplay(const char* clientExtensions, std::shared_ptr<void>& connection,
                                   std::string& error) {
  if (!hasExtension(clientExtensions, "EGL_KHR_platform_x11") &&
      !hasExtension(clientExtensions, "EGL_EXT_platform_x11")) {
    error = "the EGL library has no X11 platform (EGL_KHR_platform_x11)";
    return EGL_NO_DISPLAY;
  }
  const char* name = std::getenv("DISPLAY");
  if (name == nullptr || *name == '\0') {
    error = "no X display (DISPLAY is not set)";
    return EGL_NO_DISPLAY;
  }
  Display* server = XOpenDisplay(nullptr);
  if (server == nullptr) {
    error = "cannot open the X display \"" + std::string(name) + "\"";
    return EGL_NO_DISPLAY;
  }
  EGLDisplay display = initialised({{EGL_PLATFORM_X11_KHR, server}});
  if (display == EGL_NO_DISPLAY) {
    XCloseDisplay(server);
    error = "the EGL driver cannot draw on the X display \"" + std::string(name) + "\"";
    return EGL_NO_DISPLAY;
  }
  connection = std::shared_ptr<void>(server, [display](void* opened) {
    eglTerminate(display);
    XCloseDisplay(static_cast<Display*>(opened));
  });
  return display;
}

EGLDisplay openDisplay(GLContext::Platform platform, std::shared_ptr<void>& connection, std::string& error) {
  const char* clientExtensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
  if (!hasExtension(clientExtensions, "EGL_EXT_platform_base")) {
    error = "the EGL library offers no platform displays (EGL_EXT_platform_base)";
    return EGL_NO_DISPLAY;
  }
  return platform == GLContext::Platform::WindowSystem
             ? openWindowSystemDisplay(clientExtensions, connection, error)
             : openOffscreenDisplay(clientExtensions, error);
}

// Mesa's software rasterizer hands the drawing of each frame to one thread per processor and waits for
// them at every read-back. With two processors or fewer, which the host's own threads (the output's
// encoder) and anything else running share, that handoff waits on the scheduler every frame while the
// split gains little, so the drawing stays in the thread that asks for it. A setting of the user's stays.
void chooseSoftwareRasterizerThreads() {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  const long count = sched_getaffinity(0, sizeof processors, &processors) == 0
                         ? CPU_COUNT(&processors)
                         : sysconf(_SC_NPROCESSORS_ONLN);
  if (count > 0 && count <= 2) {
    setenv("LP_NUM_THREADS", "0", 0);
  }
}

}  // namespace

GLContext::Creation GLContext::create(Platform platform) {
  // Before the driver is loaded: it reads the setting once, when the first display is initialised.
  chooseSoftwareRasterizerThreads();
  // libepoxy aborts the process when it cannot find EGL; ask the loader first.
  void* library = dlopen("libEGL.so.1", RTLD_LAZY | RTLD_LOCAL);
  if (library == nullptr) {
    return {nullptr, "no OpenGL: libEGL.so.1 is not installed (libegl1 and Mesa's libegl-mesa0)"};
  }
  const Binding previous{eglGetCurrentDisplay(), eglGetCurrentContext(), eglGetCurrentSurface(EGL_DRAW),
                         eglGetCurrentSurface(EGL_READ)};
  std::string error;
  std::shared_ptr<void> connection;
  EGLDisplay display = openDisplay(platform, connection, error);
  if (display == EGL_NO_DISPLAY) {
    return {nullptr, "no OpenGL: " + error};
  }
  const char* extensions = eglQueryString(display, EGL_EXTENSIONS);
  if (!eglBindAPI(EGL_OPENGL_API) || !hasExtension(extensions, "EGL_KHR_surfaceless_context")) {
    return {nullptr, "no OpenGL: the EGL driver offers no desktop OpenGL context without a surface"};
  }
  EGLConfig config = EGL_NO_CONFIG_KHR;
  const EGLint configAttributes[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_NONE};
  EGLint configs = 0;
  if (!hasExtension(extensions, "EGL_KHR_no_config_context")) {
    eglChooseConfig(display, configAttributes, &config, 1, &configs);
  }
  const EGLint compatibility[] = {EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                  EGL_CONTEXT_OPENGL_COMPATIBILITY_PROFILE_BIT, EGL_NONE};
  EGLContext context = eglCreateContext(display, config, EGL_NO_CONTEXT, compatibility);
  if (context == EGL_NO_CONTEXT) {
    context = eglCreateContext(display, config, EGL_NO_CONTEXT, nullptr);
  }
  if (context == EGL_NO_CONTEXT || !eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context)) {
    return {nullptr, "no OpenGL: the EGL driver could not make a desktop OpenGL compatibility context"};
  }
  if (epoxy_gl_version() < 21 || epoxy_is_desktop_gl() == 0 ||
      (epoxy_gl_version() < 30 && !epoxy_has_gl_extension("GL_ARB_framebuffer_object"))) {
    eglDestroyContext(display, context);
    return {nullptr, "no OpenGL: the driver offers less than OpenGL 2.1 with framebuffer objects"};
  }
  std::string description = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
  description += ", ";
  description += reinterpret_cast<const char*>(glGetString(GL_VERSION));
  auto made = std::unique_ptr<GLContext>(new GLContext(display, context, std::move(description)));
  made->previous_ = previous;
  made->connection_ = std::move(connection);
  return {std::move(made), {}};
}

GLContext::GLContext(void* display, void* context, std::string description)
    : display_(display),
      context_(context),
      description_(std::move(description)),
      spareTextures_(std::make_shared<SpareTextures>()) {}

GLContext::~GLContext() {
  spareTextures_.reset();
  if (eglGetCurrentContext() == context_) {
    const bool restored = previous_.context != EGL_NO_CONTEXT &&
                          eglMakeCurrent(previous_.display, previous_.drawSurface, previous_.readSurface,
                                         previous_.context) == EGL_TRUE;
    if (!restored) {
      eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    }
  }
  // An offscreen display stays initialised: other contexts of the process may share it. One on the
  // window system goes with the connection, after the context.
  eglDestroyContext(display_, context_);
}

bool GLContext::drawsOnProcessor() const {
  return description_.find("llvmpipe") != std::string::npos ||
         description_.find("softpipe") != std::string::npos;
}

bool GLContext::makeCurrent() {
  return eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, context_) == EGL_TRUE;
}

unsigned GLContext::glTarget(TextureTarget target) {
  return target == TextureTarget::Rectangle ? GL_TEXTURE_RECTANGLE : GL_TEXTURE_2D;
}

void GLContext::tintTexturing(double red, double green, double blue, double alpha) {
  const bool white = red == 1 && green == 1 && blue == 1 && alpha == 1;
  glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, white ? GL_REPLACE : GL_MODULATE);
  glColor4d(red, green, blue, alpha);
}

bool GLContext::drawsNothingWhereTransparent() {
  if (!glIsEnabled(GL_BLEND) || glIsEnabled(GL_COLOR_LOGIC_OP) || glIsEnabled(GL_STENCIL_TEST)) {
    return false;
  }
  GLboolean depthWrites = GL_FALSE;
  glGetBooleanv(GL_DEPTH_WRITEMASK, &depthWrites);
  if (glIsEnabled(GL_DEPTH_TEST) && depthWrites == GL_TRUE) {
    return false;
  }
  // A zero source adds nothing whatever it is scaled by; the destination must come through whole.
  const auto get = [](GLenum name) {
    GLint value = 0;
    glGetIntegerv(name, &value);
    return value;
  };
  const auto keeps = [](GLint factor) { return factor == GL_ONE || factor == GL_ONE_MINUS_SRC_ALPHA; };
  return get(GL_BLEND_EQUATION_RGB) == GL_FUNC_ADD && get(GL_BLEND_EQUATION_ALPHA) == GL_FUNC_ADD &&
         keeps(get(GL_BLEND_DST_RGB)) && keeps(get(GL_BLEND_DST_ALPHA));
}

unsigned GLContext::program(const std::string& vertexSource, const std::string& fragmentSource) {
  auto key = std::make_pair(vertexSource, fragmentSource);
  if (const auto found = programs_.find(key); found != programs_.end()) {
    return found->second;
  }
  std::string ignored;
  std::optional<GLProgram> made = GLProgram::link(vertexSource, fragmentSource, ignored);
  const unsigned linked = made ? made->release() : 0;
  programs_.emplace(std::move(key), linked);
  return linked;
}

void GLContext::specifyTexture(unsigned target, int width, int height, const void* bgra) {
  glTexImage2D(target, 0, GL_RGBA, width, height, 0, GL_BGRA, GL_UNSIGNED_INT_8_8_8_8_REV, bgra);
}

void GLContext::resetSampling(const TextureView& texture) {
  const GLenum target = glTarget(texture.target);
  GLint previous = 0;
  glGetIntegerv(
      texture.target == TextureTarget::Rectangle ? GL_TEXTURE_BINDING_RECTANGLE : GL_TEXTURE_BINDING_2D,
      &previous);
  glBindTexture(target, texture.name);
  glTexParameteri(target, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  glTexParameteri(target, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
  glTexParameteri(target, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
  glTexParameteri(target, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
  glBindTexture(target, static_cast<GLuint>(previous));
}

unsigned GLContext::texturingProgram(TextureTarget target, bool tinted) {
  static const std::string vertex =
      "varying vec2 position;"
      "void main() {"
      "  gl_Position = ftransform();"
      "  position = (gl_TextureMatrix[0] * gl_MultiTexCoord0).xy;"
      "}";
  const bool rectangle = target == TextureTarget::Rectangle;
  std::string fragment = rectangle ? "#extension GL_ARB_texture_rectangle : enable\n"
                                     "uniform sampler2DRect image;"
                                   : "uniform sampler2D image;";
  fragment += tinted ? "uniform vec4 tint;" : "";
  fragment += "varying vec2 position; void main() { gl_FragColor = ";
  fragment += rectangle ? "texture2DRect(image, position)" : "texture2D(image, position)";
  fragment += tinted ? " * tint; }" : "; }";
  return program(vertex, fragment);
}

unsigned GLContext::takeError() {
  const GLenum first = glGetError();
  if (first != GL_NO_ERROR) {
    // A lost context keeps reporting; a bounded loop cannot hang.
    for (int i = 0; i < 32 && glGetError() != GL_NO_ERROR; ++i) {
    }
  }
  return first;
}

GLContext::Converted& GLContext::converted(const Image& image) {
  auto* existing = dynamic_cast<Converted*>(image.convertedRepresentation());
  if (existing != nullptr) {
    return *existing;
  }
  auto made = std::make_unique<Converted>(spareTextures_);
  Converted& result = *made;
  image.setConvertedRepresentation(std::move(made));
  return result;
}

std::optional<TextureView> GLContext::textureForImage(const Image& image, TextureTarget target) {
  if (auto own = image.texture()) {
    return own;
  }
  const int width = image.width();
  const int height = image.height();
  if (width <= 0 || height <= 0) {
    return std::nullopt;
  }
  Converted& cache = converted(image);
  TextureView& made = cache.textures[static_cast<std::size_t>(target)];
  if (made.name != 0) {
    return made;
  }
  const GLenum glTexture = glTarget(target);
  std::optional<TextureView> spare;
  glPushAttrib(GL_ALL_ATTRIB_BITS);
  glPushClientAttrib(GL_CLIENT_ALL_ATTRIB_BITS);
  takeError();
  if (auto pixels = image.pixelBuffer(); pixels && pixels->rowBytes % 4 == 0) {
    GLint maximum = 0;
    glGetIntegerv(target == TextureTarget::Rectangle ? GL_MAX_RECTANGLE_TEXTURE_SIZE : GL_MAX_TEXTURE_SIZE,
                  &maximum);
    if (width <= maximum && height <= maximum) {
      GLuint name = 0;
      glGenTextures(1, &name);
      glBindTexture(glTexture, name);
      resetSampling({name, target, width, height, true});
      glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
      glPixelStorei(GL_UNPACK_ROW_LENGTH, static_cast<GLint>(pixels->rowBytes / 4));
      specifyTexture(glTexture, width, height, pixels->bytes);
      made = {name, target, width, height, true};
    }
  } else if (image.canRender()) {
    spare = spareTextures_->take(target, width, height);
    if (auto framebuffer =
            spare ? Framebuffer::adopt(*spare) : Framebuffer::create(width, height, target, false)) {
      framebuffer->bind();
      glDisable(GL_BLEND);
      if (!image.rendersEveryPixelOnce()) {
        glClearColor(0, 0, 0, 0);
        glClear(GL_COLOR_BUFFER_BIT);
      }
      const bool drawn = renderImage(image, 1, 1);
      framebuffer->unbind();
      if (drawn) {
        made = framebuffer->texture();
        framebuffer->releaseTexture();
        cache.drawn = true;
      }
    }
  }
  glPopClientAttrib();
  glPopAttrib();
  // After the pop, which gives back the sampling of whatever texture was bound at the push.
  if (spare && made.name == spare->name) {
    resetSampling(made);
  }
  if (takeError() != 0 && made.name != 0) {
    glDeleteTextures(1, &made.name);
    made = {};
  }
  if (made.name == 0) {
    return std::nullopt;
  }
  return made;
}

bool GLContext::renderImage(const Image& image, double xSign, double ySign) {
  glMatrixMode(GL_PROJECTION);
  glPushMatrix();
  glLoadIdentity();
  glScaled(xSign, ySign, 1);
  glMatrixMode(GL_MODELVIEW);
  glPushMatrix();
  glLoadIdentity();
  const bool drawn = image.render(*this);
  glMatrixMode(GL_PROJECTION);
  glPopMatrix();
  glMatrixMode(GL_MODELVIEW);
  glPopMatrix();
  return drawn;
}

bool GLContext::renderImageInPlace(const Image& image, int x, int y, bool mirrored, bool upsideDown) {
  GLint largest[2] = {0, 0};
  glGetIntegerv(GL_MAX_VIEWPORT_DIMS, largest);
  const int width = image.width();
  const int height = image.height();
  // Within the largest viewport's size of the origin, the viewport lies where it is put: drivers clamp
  // its corner to a range at least twice that size.
  const auto fits = [](int start, int length, int limit) {
    return length > 0 && start >= -limit && start <= limit - length;
  };
  if (!image.rendersEveryPixelOnce() || !image.canRender() || !fits(x, width, largest[0]) ||
      !fits(y, height, largest[1])) {
    return false;
  }
  glPushAttrib(GL_VIEWPORT_BIT);
  glViewport(x, y, width, height);
  const bool drawn = renderImage(image, mirrored ? -1 : 1, upsideDown ? -1 : 1);
  glPopAttrib();
  return drawn;
}

std::optional<PixelBufferView> GLContext::pixelsForImage(const Image& image) {
  if (auto own = image.pixelBuffer()) {
    return own;
  }
  // Reads back a texture the image already has, so that a drawn image is not drawn again.
  TextureTarget kind = TextureTarget::Rectangle;
  if (auto* cached = dynamic_cast<Converted*>(image.convertedRepresentation())) {
    if (cached->pixels) {
      return cached->pixels->view();
    }
    if (cached->textures[static_cast<std::size_t>(TextureTarget::Rectangle)].name == 0 &&
        cached->textures[static_cast<std::size_t>(TextureTarget::Texture2D)].name != 0) {
      kind = TextureTarget::Texture2D;
    }
  }
  const auto texture = textureForImage(image, kind);
  if (!texture) {
    return std::nullopt;
  }
  auto bitmap = Bitmap::allocate(texture->width, texture->height, Bitmap::paddedRowBytes(texture->width));
  if (!bitmap) {
    return std::nullopt;
  }
  GLint previous = 0;
  glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &previous);
  GLuint reader = 0;
  glGenFramebuffers(1, &reader);
  glBindFramebuffer(GL_READ_FRAMEBUFFER, reader);
  glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, glTarget(texture->target), texture->name,
                         0);
  const bool complete = glCheckFramebufferStatus(GL_READ_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
  if (complete) {
    Framebuffer::readPixels(texture->width, texture->height, bitmap->bytes(), bitmap->rowBytes(),
                            !texture->flipped);
  }
  glBindFramebuffer(GL_READ_FRAMEBUFFER, static_cast<GLuint>(previous));
  glDeleteFramebuffers(1, &reader);
  if (!complete || takeError() != 0) {
    return std::nullopt;
  }
  Converted& cache = converted(image);
  cache.pixels = std::move(bitmap);
  return cache.pixels->view();
}

void GLContext::bindTexture(const TextureView& texture, unsigned unit, bool normalizedCoordinates) {
  const GLenum target = glTarget(texture.target);
  glActiveTexture(GL_TEXTURE0 + unit);
  glEnable(target);
  glBindTexture(target, texture.name);
  GLint mode = GL_MODELVIEW;
  glGetIntegerv(GL_MATRIX_MODE, &mode);
  glMatrixMode(GL_TEXTURE);
  glLoadIdentity();
  const double width = texture.width > 0 ? texture.width : 1;
  const double height = texture.height > 0 ? texture.height : 1;
  if (texture.target == TextureTarget::Rectangle && normalizedCoordinates) {
    glScaled(width, height, 1);
  }
  if (texture.flipped) {
    glTranslated(0, texture.target == TextureTarget::Rectangle && !normalizedCoordinates ? height : 1, 0);
    glScaled(1, -1, 1);
  }
  if (texture.target == TextureTarget::Texture2D && !normalizedCoordinates) {
    glScaled(1 / width, 1 / height, 1);
  }
  glMatrixMode(static_cast<GLenum>(mode));
}

void GLContext::unbindTexture(const TextureView& texture, unsigned unit) {
  const GLenum target = glTarget(texture.target);
  glActiveTexture(GL_TEXTURE0 + unit);
  GLint mode = GL_MODELVIEW;
  glGetIntegerv(GL_MATRIX_MODE, &mode);
  glMatrixMode(GL_TEXTURE);
  glLoadIdentity();
  glMatrixMode(static_cast<GLenum>(mode));
  glBindTexture(target, 0);
  glDisable(target);
}

}  // namespace qva
