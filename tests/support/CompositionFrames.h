#pragma once

#include <memory>
#include <optional>
#include <string>

#include "foundation/dispatch/TaskQueue.h"
#include "foundation/image/Bitmap.h"
#include "host/Composition.h"
#include "host/CompositionGraph.h"
#include "host/FrameRenderer.h"
#include "host/HostPatches.h"
#include "host/Renderer.h"

namespace qva {

// A composition file rendered frame by frame as `qva render` renders it, for the tests of the examples.
class CompositionFrames {
 public:
  CompositionFrames(Renderer& renderer, const std::string& path)
      : composition_(Composition::load(path)), context_(queue_) {
    context_.setCompositionPath(composition_.path());
    renderer.setLogicalWidth(composition_.width());
    renderer.beginFrame(context_, composition_.background());
    graph_ = std::make_unique<CompositionGraph>(composition_, availablePatches(), context_, queue_);
    frames_ = std::make_unique<FrameRenderer>(renderer, context_, composition_.background(),
                                              composition_.frameRate(), FieldOrder::Progressive);
    frame_ =
        Bitmap::allocate(renderer.width(), renderer.height(), static_cast<std::size_t>(renderer.width()) * 4);
  }
  ~CompositionFrames() { graph_->stop(); }
  CompositionFrames(const CompositionFrames&) = delete;
  CompositionFrames& operator=(const CompositionFrames&) = delete;

  // Renders frame number index; an empty string, or why not.
  std::string render(long long index) {
    return frames_->render(
        index, [this](double time, const Arguments& arguments) { graph_->evaluate(time, arguments); },
        *frame_);
  }
  const Bitmap& frame() const { return *frame_; }
  // The host thread's queue, for background work to deliver between frames.
  TaskQueue& queue() { return queue_; }

 private:
  Composition composition_;
  TaskQueue queue_;
  ExecutionContext context_;
  std::unique_ptr<CompositionGraph> graph_;
  std::unique_ptr<FrameRenderer> frames_;
  std::optional<Bitmap> frame_;
};

}  // namespace qva
