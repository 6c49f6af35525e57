#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "foundation/image/Bitmap.h"
#include "host/RenderOutput.h"

namespace qva {

// Hands frames to another output on a thread of its own, so that encoding overlaps the rendering of
// the next frames. At most a few frames wait; an error of the inner output is answered by the next
// writeFrame or by finish.
class ThreadedOutput final : public RenderOutput {
 public:
  explicit ThreadedOutput(std::unique_ptr<RenderOutput> inner);
  ~ThreadedOutput() override;

  std::string writeFrame(const PixelBufferView& frame) override;
  // Lets fill draw the next frame straight into a waiting buffer of the given size, tight rows, and
  // queues it without a copy; fill answers an empty string or why it could not.
  std::string writeFrameFilledBy(int width, int height, const std::function<std::string(Bitmap&)>& fill);
  std::string finish() override;
  std::string description() const override { return inner_->description(); }

 private:
  void work();
  std::string stopWorker();

  std::unique_ptr<RenderOutput> inner_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Bitmap> queued_;
  std::vector<Bitmap> spare_;
  std::string error_;
  bool closing_ = false;
  std::thread worker_;
};

}  // namespace qva
