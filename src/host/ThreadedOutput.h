#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

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
  std::string finish() override;
  std::string description() const override { return inner_->description(); }

 private:
  struct Frame {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> bytes;
  };
  void work();
  std::string stopWorker();

  std::unique_ptr<RenderOutput> inner_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Frame> queued_;
  std::vector<Frame> spare_;
  std::string error_;
  bool closing_ = false;
  std::thread worker_;
};

}  // namespace qva
