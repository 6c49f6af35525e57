#include "host/PreviewOutput.h"

#include <SDL2/SDL.h>

#include <algorithm>

namespace qva {

namespace {

constexpr int kMaxWidth = 1280;
constexpr int kMaxHeight = 720;

std::string sdlError(const std::string& what) {
  return what + ": " + SDL_GetError();
}

}  // namespace

PreviewOutput::~PreviewOutput() {
  close();
}

std::string PreviewOutput::openWindow(int width, int height) {
  // A window needs a display: SDL would fall back on drawing nowhere. SDL_VIDEODRIVER still chooses.
  SDL_SetHintWithPriority(SDL_HINT_VIDEODRIVER, "x11,wayland", SDL_HINT_DEFAULT);
  if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0) {
    return sdlError("no display for the preview window");
  }
  videoStarted_ = true;
  const double scale =
      std::min({1.0, static_cast<double>(kMaxWidth) / width, static_cast<double>(kMaxHeight) / height});
  // At the top left of the screen: without a window manager the window lands exactly there.
  window_ = SDL_CreateWindow("qva preview", 0, 0, std::max(1, static_cast<int>(width * scale)),
                             std::max(1, static_cast<int>(height * scale)), SDL_WINDOW_SHOWN);
  if (window_ == nullptr) {
    return sdlError("cannot open the preview window");
  }
  // Showing a frame is a copy and a scale: the software renderer, drawing into the window's own
  // framebuffer, needs no GL of the display's beside the host's.
  SDL_SetHint(SDL_HINT_FRAMEBUFFER_ACCELERATION, "0");
  renderer_ = SDL_CreateRenderer(window_, -1, SDL_RENDERER_SOFTWARE);
  if (renderer_ == nullptr) {
    return sdlError("cannot draw in the preview window");
  }
  SDL_SetHint(SDL_HINT_RENDER_SCALE_QUALITY, "linear");
  // Premultiplied BGRA bytes are ARGB8888 words on a little-endian machine.
  texture_ =
      SDL_CreateTexture(renderer_, SDL_PIXELFORMAT_ARGB8888, SDL_TEXTUREACCESS_STREAMING, width, height);
  if (texture_ == nullptr) {
    return sdlError("cannot make the preview window's picture");
  }
  // Composited over black: premultiplied colour as it stands.
  SDL_SetTextureBlendMode(texture_, SDL_BLENDMODE_NONE);
  return {};
}

std::string PreviewOutput::writeFrame(const PixelBufferView& frame) {
  if (window_ == nullptr) {
    if (std::string error = openWindow(frame.width, frame.height); !error.empty()) {
      close();
      return error;
    }
  }
  SDL_Event event;
  while (SDL_PollEvent(&event) != 0) {
    if (event.type == SDL_QUIT ||
        (event.type == SDL_WINDOWEVENT && event.window.event == SDL_WINDOWEVENT_CLOSE)) {
      close();
      return "the preview window was closed";
    }
  }
  if (SDL_UpdateTexture(texture_, nullptr, frame.bytes, static_cast<int>(frame.rowBytes)) != 0 ||
      SDL_RenderCopy(renderer_, texture_, nullptr, nullptr) != 0) {
    return sdlError("cannot show a frame in the preview window");
  }
  SDL_RenderPresent(renderer_);
  return {};
}

std::string PreviewOutput::finish() {
  close();
  return {};
}

void PreviewOutput::close() {
  if (texture_ != nullptr) {
    SDL_DestroyTexture(texture_);
    texture_ = nullptr;
  }
  if (renderer_ != nullptr) {
    SDL_DestroyRenderer(renderer_);
    renderer_ = nullptr;
  }
  if (window_ != nullptr) {
    SDL_DestroyWindow(window_);
    window_ = nullptr;
  }
  if (videoStarted_) {
    SDL_QuitSubSystem(SDL_INIT_VIDEO);
    videoStarted_ = false;
  }
}

}  // namespace qva
