#pragma once

#include <memory>
#include <optional>
#include <string>

#include "foundation/gl/GLContext.h"
#include "foundation/gl/GLProgram.h"

struct SDL_Window;

namespace qva {

// The preview's window on the user's X display and the GL context that draws into it: a context of its
// own on the host context's EGL display, sharing the host's textures, with the window as its surface.
// Made, used and destroyed on one thread, on which its context stays current.
class PreviewWindow {
 public:
  struct Creation {
    std::unique_ptr<PreviewWindow> window;
    std::string error;
  };

  // A window of the given size at the top left of the screen; host is made on the window system
  // (GLContext::Platform::WindowSystem).
  static Creation open(const GLContext& host, int width, int height);
  ~PreviewWindow();
  PreviewWindow(const PreviewWindow&) = delete;
  PreviewWindow& operator=(const PreviewWindow&) = delete;

  // Handles the window's events; whether the user has closed it.
  bool closed();
  // Draws a 2D texture whose first row is the top one, scaled to fit the window and composited over
  // black, and shows it without waiting for the display's refresh; an empty string, or why not.
  std::string show(unsigned texture, int width, int height);

 private:
  PreviewWindow() = default;
  std::string attachContext(const GLContext& host);

  SDL_Window* window_ = nullptr;
  bool videoStarted_ = false;
  void* display_ = nullptr;
  void* surface_ = nullptr;
  void* context_ = nullptr;
  std::optional<GLProgram> program_;
};

}  // namespace qva
