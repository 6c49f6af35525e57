#include "host/LiveOutput.h"

namespace qva {

LiveOutput::Opening LiveOutput::openAll(const std::vector<std::string>& names, int width, int height,
                                        double frameRate, const std::string& codec) {
  Opening opening;
  std::thread([&] {
    lowerThreadPriority();
    for (const std::string& name : names) {
      auto opened = RenderOutput::open(name, width, height, frameRate, codec);
      if (!opened.output) {
        opening.error = opened.error;
        opening.outputs.clear();
        return;
      }
      opening.outputs.push_back(std::make_unique<LiveOutput>(std::move(opened.output)));
    }
  }).join();
  return opening;
}

LiveOutput::LiveOutput(std::unique_ptr<RenderOutput> inner, std::size_t capacity)
    : inner_(std::move(inner)), capacity_(capacity), worker_([this] { work(); }) {}

LiveOutput::~LiveOutput() {
  {
    std::lock_guard lock(mutex_);
    queued_.clear();
  }
  stopWorker();
}

void LiveOutput::offer(std::shared_ptr<const Bitmap> frame) {
  {
    std::lock_guard lock(mutex_);
    if (!error_.empty() || closing_) {
      return;
    }
    if (queued_.size() >= capacity_) {
      ++dropped_;
      ++droppedSinceQueued_;
      return;
    }
    queued_.push_back({std::move(frame), droppedSinceQueued_});
    droppedSinceQueued_ = 0;
  }
  changed_.notify_all();
}

void LiveOutput::work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return !queued_.empty() || closing_; });
    if (queued_.empty()) {
      return;
    }
    Waiting waiting = std::move(queued_.front());
    queued_.pop_front();
    lock.unlock();
    if (waiting.droppedBefore > 0) {
      inner_->skipFrames(waiting.droppedBefore);
    }
    std::string error = inner_->writeFrame(waiting.frame->view());
    waiting.frame.reset();
    lock.lock();
    if (error.empty()) {
      ++written_;
    } else {
      error_ = std::move(error);
      queued_.clear();
    }
  }
}

void LiveOutput::stopWorker() {
  {
    std::lock_guard lock(mutex_);
    closing_ = true;
  }
  changed_.notify_all();
  if (worker_.joinable()) {
    worker_.join();
  }
}

std::string LiveOutput::finish() {
  stopWorker();
  std::lock_guard lock(mutex_);
  if (!error_.empty()) {
    return error_;
  }
  error_ = inner_->finish();
  return error_;
}

long long LiveOutput::written() const {
  std::lock_guard lock(mutex_);
  return written_;
}

long long LiveOutput::dropped() const {
  std::lock_guard lock(mutex_);
  return dropped_;
}

std::string LiveOutput::error() const {
  std::lock_guard lock(mutex_);
  return error_;
}

}  // namespace qva
