#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "foundation/image/Bitmap.h"
#include "host/PlayoutOutput.h"
#include "host/RenderOutput.h"

namespace qva {

// An output fed by a playout clock: frames wait in a bounded queue for a thread of the output's own, and
// offering a frame never waits. A frame that finds the queue full is dropped and counted, so that a slow
// output never holds the clock up. After the output fails it takes no more frames and keeps its error.
class LiveOutput final : public PlayoutOutput {
 public:
  // Frames that may wait at most.
  static constexpr std::size_t kDefaultCapacity = 4;

  struct Opening {
    std::vector<std::unique_ptr<LiveOutput>> outputs;
    // Why the first output that could not be opened could not; the others are then closed.
    std::string error;
  };

  // Opens the outputs RenderOutput::open names on a thread of lower priority, which every thread they
  // start (encoders, pipelines, the queues' workers) inherits: when the processors are busy, the clock's
  // thread goes first, and an output that cannot keep up drops frames instead of making them late.
  static Opening openAll(const std::vector<std::string>& names, int width, int height, double frameRate,
                         const std::string& codec);

  explicit LiveOutput(std::unique_ptr<RenderOutput> inner, std::size_t capacity = kDefaultCapacity);
  // Stops the thread; frames still waiting are not written.
  ~LiveOutput() override;
  LiveOutput(const LiveOutput&) = delete;
  LiveOutput& operator=(const LiveOutput&) = delete;

  bool takesPixels() const override { return true; }
  void offer(std::shared_ptr<const Bitmap> frame) override;
  std::string finish() override;

  long long written() const override;
  long long dropped() const override;
  std::string error() const override;
  std::string description() const override { return inner_->description(); }

 private:
  void work();
  void stopWorker();

  std::unique_ptr<RenderOutput> inner_;
  std::size_t capacity_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  struct Waiting {
    std::shared_ptr<const Bitmap> frame;
    // Frames dropped between the one queued before and this one.
    long long droppedBefore = 0;
  };

  std::deque<Waiting> queued_;
  // Frames dropped since the last one queued.
  long long droppedSinceQueued_ = 0;
  long long written_ = 0;
  long long dropped_ = 0;
  std::string error_;
  bool closing_ = false;
  std::thread worker_;
};

}  // namespace qva
