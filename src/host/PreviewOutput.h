#pragma once

#include <array>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "foundation/gl/GLContext.h"
#include "host/PlayoutOutput.h"

namespace qva {

class PreviewWindow;

// Frames shown in a window on the user's display, composited over black, scaled down to fit 1280 × 720
// when larger, without reading them back: the host thread copies each canvas into one of a few textures
// on the GPU and hands it to a thread of the preview's own, which draws it into the window with a
// context sharing the host's textures. Fences order the copy before the drawing and the drawing before
// the next copy into the same texture. The thread shows the newest frame; one it had no time for is
// dropped. Closing the window ends this output alone.
class PreviewOutput final : public PlayoutOutput {
 public:
  static constexpr const char* kName = "preview";

  struct Creation {
    std::unique_ptr<PreviewOutput> output;
    std::string error;
  };

  // Opens the window for canvases of the given size, on the host thread, with the host's context made on
  // the window system (GLContext::Platform::WindowSystem) current; it must stay current there whenever
  // the output is offered a canvas or destroyed.
  static Creation open(GLContext& host, int width, int height);
  ~PreviewOutput() override;
  PreviewOutput(const PreviewOutput&) = delete;
  PreviewOutput& operator=(const PreviewOutput&) = delete;

  bool takesPixels() const override { return false; }
  void offerCanvas(const TextureView& canvas) override;
  // Shows the frame that waits, then closes the window.
  std::string finish() override;

  // Frames shown.
  long long written() const override;
  long long dropped() const override;
  std::string error() const override;
  std::string description() const override { return "preview window"; }

 private:
  // Textures a frame can be in at once: one being shown, one waiting and one to copy the next into.
  static constexpr std::size_t kTextures = 3;

  PreviewOutput(int width, int height);
  bool makeTextures();
  // The preview's thread: opens the window, says how that went, and shows frames until finish().
  void run(const GLContext& host, int windowWidth, int windowHeight, std::promise<std::string>& opened);
  void show(PreviewWindow& window);
  void stopThread();

  int width_;
  int height_;
  std::array<unsigned, kTextures> textures_{};
  // For each texture, the fence after the last use of it by the other thread, which its next user
  // waits for; owned by whichever thread holds the texture.
  std::array<void*, kTextures> fences_{};

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  // Indices of textures the host may copy into.
  std::vector<std::size_t> free_;
  // The newest frame, not yet taken by the preview's thread.
  std::optional<std::size_t> waiting_;
  long long shown_ = 0;
  long long dropped_ = 0;
  std::string error_;
  bool closing_ = false;
  std::thread thread_;
};

}  // namespace qva
