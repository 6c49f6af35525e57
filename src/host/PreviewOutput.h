#pragma once

#include <string>

#include "host/RenderOutput.h"

struct SDL_Window;
struct SDL_Renderer;
struct SDL_Texture;

namespace qva {

// Frames shown in a window on the user's display, composited over black, scaled down to fit 1280 × 720
// when larger. The window opens with the first frame, on the thread that writes frames, and closing it
// ends this output alone. Without a display the first frame fails with the reason.
class PreviewOutput final : public RenderOutput {
 public:
  static constexpr const char* kName = "preview";

  PreviewOutput() = default;
  ~PreviewOutput() override;

  std::string writeFrame(const PixelBufferView& frame) override;
  std::string finish() override;
  std::string description() const override { return "preview window"; }

 private:
  std::string openWindow(int width, int height);
  void close();

  bool videoStarted_ = false;
  SDL_Window* window_ = nullptr;
  SDL_Renderer* renderer_ = nullptr;
  SDL_Texture* texture_ = nullptr;
};

}  // namespace qva
