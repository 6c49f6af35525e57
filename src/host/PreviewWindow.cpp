#include "host/PreviewWindow.h"

#include <SDL2/SDL.h>
#include <SDL2/SDL_syswm.h>
#include <epoxy/egl.h>
#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>
#include <string>

namespace qva {

namespace {

// Draws the texture on unit 0 at the vertex's coordinates and nothing else: Mesa's software rasterizer
// draws a quad of such a program and a BGRA texture on a fast path, several times faster than
// fixed-function texturing.
constexpr const char* kVertexShader =
    "varying vec2 position;"
    "void main() { gl_Position = gl_Vertex; position = gl_MultiTexCoord0.xy; }";
constexpr const char* kFragmentShader =
    "uniform sampler2D image; varying vec2 position;"
    "void main() { gl_FragColor = texture2D(image, position); }";

std::string sdlError(const std::string& what) {
  return what + ": " + SDL_GetError();
}

// A configuration of the display that draws 8-bit RGB with desktop OpenGL into windows, and the X
// visual its windows need; nothing when the driver has none.
bool chooseWindowConfig(EGLDisplay display, EGLConfig& config, EGLint& visual) {
  const EGLint wanted[] = {EGL_SURFACE_TYPE,
                           EGL_WINDOW_BIT,
                           EGL_RENDERABLE_TYPE,
                           EGL_OPENGL_BIT,
                           EGL_RED_SIZE,
                           8,
                           EGL_GREEN_SIZE,
                           8,
                           EGL_BLUE_SIZE,
                           8,
                           EGL_NONE};
  EGLConfig configs[64];
  EGLint count = 0;
  if (!eglChooseConfig(display, wanted, configs, 64, &count)) {
    return false;
  }
  for (EGLint index = 0; index < count; ++index) {
    if (eglGetConfigAttrib(display, configs[index], EGL_NATIVE_VISUAL_ID, &visual) && visual != 0) {
      config = configs[index];
      return true;
    }
  }
  return false;
}

}  // namespace

PreviewWindow::Creation PreviewWindow::open(const GLContext& host, int width, int height) {
  auto made = std::unique_ptr<PreviewWindow>(new PreviewWindow());
  made->display_ = host.eglDisplay();
  EGLConfig config = nullptr;
  EGLint visual = 0;
  if (!chooseWindowConfig(made->display_, config, visual)) {
    return {nullptr, "the X display's EGL driver cannot draw OpenGL into windows"};
  }
  // The window must be on the display the host's context is on, with the configuration's visual.
  SDL_SetHintWithPriority(SDL_HINT_VIDEODRIVER, "x11", SDL_HINT_DEFAULT);
  SDL_SetHint(SDL_HINT_VIDEO_X11_WINDOW_VISUALID, std::to_string(visual).c_str());
  if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0) {
    return {nullptr, sdlError("no display for the preview window")};
  }
  made->videoStarted_ = true;
  // At the top left of the screen: without a window manager the window lands exactly there.
  made->window_ = SDL_CreateWindow("qva preview", 0, 0, width, height, SDL_WINDOW_SHOWN);
  if (made->window_ == nullptr) {
    return {nullptr, sdlError("cannot open the preview window")};
  }
  SDL_SysWMinfo info;
  SDL_VERSION(&info.version);
  if (!SDL_GetWindowWMInfo(made->window_, &info) || info.subsystem != SDL_SYSWM_X11) {
    return {nullptr, "the preview window needs an X11 display (SDL_VIDEODRIVER=x11)"};
  }
  unsigned long window = info.info.x11.window;
  made->surface_ = eglCreatePlatformWindowSurfaceEXT(made->display_, config, &window, nullptr);
  if (made->surface_ == EGL_NO_SURFACE) {
    return {nullptr, "the EGL driver cannot draw into the preview window"};
  }
  const EGLint compatibility[] = {EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                  EGL_CONTEXT_OPENGL_COMPATIBILITY_PROFILE_BIT, EGL_NONE};
  if (!eglBindAPI(EGL_OPENGL_API)) {
    return {nullptr, "the X display's EGL driver has no desktop OpenGL"};
  }
  made->context_ = eglCreateContext(made->display_, config, host.eglContext(), compatibility);
  if (made->context_ == EGL_NO_CONTEXT ||
      !eglMakeCurrent(made->display_, made->surface_, made->surface_, made->context_)) {
    return {nullptr, "the EGL driver cannot make a context that shares the host's textures"};
  }
  std::string log;
  made->program_ = GLProgram::link(kVertexShader, kFragmentShader, log);
  if (!made->program_) {
    return {nullptr, "cannot compile the preview window's shaders: " + log};
  }
  glUseProgram(made->program_->name());
  // Showing a frame never waits for the display's refresh: the preview keeps to the newest frame.
  eglSwapInterval(made->display_, 0);
  glDisable(GL_BLEND);
  glDisable(GL_DEPTH_TEST);
  glClearColor(0, 0, 0, 1);
  return {std::move(made), {}};
}

PreviewWindow::~PreviewWindow() {
  program_.reset();
  if (context_ != nullptr) {
    eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    eglDestroyContext(display_, context_);
  }
  if (surface_ != nullptr) {
    eglDestroySurface(display_, surface_);
  }
  if (window_ != nullptr) {
    SDL_DestroyWindow(window_);
  }
  if (videoStarted_) {
    SDL_QuitSubSystem(SDL_INIT_VIDEO);
  }
}

bool PreviewWindow::closed() {
  SDL_Event event;
  bool closing = false;
  while (SDL_PollEvent(&event) != 0) {
    closing = closing || event.type == SDL_QUIT ||
              (event.type == SDL_WINDOWEVENT && event.window.event == SDL_WINDOWEVENT_CLOSE);
  }
  return closing;
}

std::string PreviewWindow::show(unsigned texture, int width, int height) {
  EGLint surfaceWidth = 0;
  EGLint surfaceHeight = 0;
  eglQuerySurface(display_, surface_, EGL_WIDTH, &surfaceWidth);
  eglQuerySurface(display_, surface_, EGL_HEIGHT, &surfaceHeight);
  // Scaled to fit whatever size the window has been given, centred, black around it.
  const double scale =
      std::min(static_cast<double>(surfaceWidth) / width, static_cast<double>(surfaceHeight) / height);
  const int shownWidth = std::max(1, static_cast<int>(std::lround(width * scale)));
  const int shownHeight = std::max(1, static_cast<int>(std::lround(height * scale)));
  if (shownWidth < surfaceWidth || shownHeight < surfaceHeight) {
    glViewport(0, 0, surfaceWidth, surfaceHeight);
    glClear(GL_COLOR_BUFFER_BIT);
  }
  glViewport((surfaceWidth - shownWidth) / 2, (surfaceHeight - shownHeight) / 2, shownWidth, shownHeight);
  glBindTexture(GL_TEXTURE_2D, texture);
  // The texture's first row at the top of the window.
  glBegin(GL_TRIANGLE_STRIP);
  glTexCoord2f(0, 1);
  glVertex2f(-1, -1);
  glTexCoord2f(1, 1);
  glVertex2f(1, -1);
  glTexCoord2f(0, 0);
  glVertex2f(-1, 1);
  glTexCoord2f(1, 0);
  glVertex2f(1, 1);
  glEnd();
  glBindTexture(GL_TEXTURE_2D, 0);
  if (const GLenum error = glGetError(); error != GL_NO_ERROR) {
    return "cannot draw in the preview window (GL error " + std::to_string(error) + ")";
  }
  if (!eglSwapBuffers(display_, surface_)) {
    return "cannot show a frame in the preview window (EGL error " + std::to_string(eglGetError()) + ")";
  }
  return {};
}

}  // namespace qva
