#pragma once

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/dispatch/TaskQueue.h"
#include "foundation/gl/AsyncReadback.h"
#include "host/Composition.h"
#include "host/CompositionGraph.h"
#include "host/FramePacer.h"
#include "host/FramePool.h"
#include "host/PlayoutClock.h"
#include "host/PlayoutControl.h"
#include "host/PlayoutOutput.h"
#include "host/Renderer.h"

namespace qva {

// A composition played live: frames rendered on a clock at a fixed rate, read back once and offered to
// every output, published inputs changed and compositions swapped at frame boundaries. Reading a frame
// back overlaps drawing the next, so the outputs get each frame at the due time of the one after it: a
// constant latency of one frame. Outputs that take the canvas on the GPU get it as soon as it is drawn,
// and when no output takes pixels, nothing is read back. The thread that makes it, with the renderer's
// context current, is its host thread and the one that calls play(); the control members may be called from
// any thread.
class Playout final : public PlayoutControl {
 public:
  // Throws CompositionError when the composition cannot run.
  Playout(Renderer& renderer, PlayoutClock& clock, double frameRate, const Composition& composition);
  ~Playout() override;

  // The graph playing, for settings made on the host thread before play().
  CompositionGraph& graph() { return *scene_->graph; }
  void addOutput(std::unique_ptr<PlayoutOutput> output) { outputs_.push_back(std::move(output)); }
  const std::vector<std::unique_ptr<PlayoutOutput>>& outputs() const { return outputs_; }
  // Reads every frame back even when no output takes pixels, so that latestFrame() has it.
  void keepFramesInMemory() { framesInMemory_ = true; }

  // Plays until stop() or, when given, until the clock reaches that frame, calling afterFrame on the host
  // thread after each frame shown; then stops the patches.
  void play(std::optional<long long> frames, const std::function<void()>& afterFrame = {});
  // Completes the outputs, writing what waits in their queues; the first error of each, by output.
  std::vector<std::string> finishOutputs();
  PlayoutPacing pacing() const { return pacer_.pacing(); }

  PlayoutState state() const override;
  std::string setInputs(const std::vector<std::pair<std::string, Value>>& changes) override;
  std::string load(const std::string& path) override;
  void stop() override;
  std::shared_ptr<const Bitmap> latestFrame() override;
  void setFrameObserver(std::function<void(long long frame)> observer) override;

 private:
  // A composition with what runs it; members are destroyed graph first.
  struct Scene {
    Composition composition;
    TaskQueue queue;
    ExecutionContext context;
    std::unique_ptr<CompositionGraph> graph;
    // The playout frame at which the composition's time is 0.
    long long firstFrame = 0;

    explicit Scene(Composition loaded) : composition(std::move(loaded)), context(queue) {}
  };
  struct PendingLoad {
    std::string path;
    std::promise<std::string> answer;
  };

  std::unique_ptr<Scene> makeScene(const Composition& composition, long long firstFrame);
  void applyPending(long long nextFrame);
  std::string loadNow(const std::string& path, long long firstFrame);
  // Draws a frame, begins reading it back when that is wanted, and offers the canvas.
  void drawFrame(long long frame, bool readBack);
  // The oldest frame read back, or nothing when memory or the driver failed.
  std::shared_ptr<const Bitmap> collectFrame();
  void offer(const std::shared_ptr<const Bitmap>& frame);
  void publishState(const FramePacer::Slot& slot, std::shared_ptr<const Bitmap> frame);
  // The published inputs of the scene with their ports' attributes and current values.
  std::vector<PublishedInputState> inputStates() const;

  Renderer& renderer_;
  PlayoutClock& clock_;
  double frameRate_;
  FramePacer pacer_;
  FramePool pool_;
  AsyncReadback readback_;
  std::unique_ptr<Scene> scene_;
  std::vector<std::unique_ptr<PlayoutOutput>> outputs_;
  bool framesInMemory_ = false;
  std::thread::id hostThread_;

  mutable std::mutex mutex_;
  PlayoutState state_;
  std::vector<std::pair<std::string, Value>> pendingInputs_;
  std::vector<PendingLoad> pendingLoads_;
  std::shared_ptr<const Bitmap> latestFrame_;
  std::function<void(long long)> observer_;
  bool playing_ = false;
  std::atomic<bool> stopRequested_ = false;
};

}  // namespace qva
