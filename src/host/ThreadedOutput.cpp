#include "host/ThreadedOutput.h"

#include <algorithm>

namespace qva {

namespace {

// Frames rendered ahead of the encoder at most.
constexpr std::size_t kMaxQueued = 3;

}  // namespace

ThreadedOutput::ThreadedOutput(std::unique_ptr<RenderOutput> inner)
    : inner_(std::move(inner)), worker_([this] { work(); }) {}

ThreadedOutput::~ThreadedOutput() {
  stopWorker();
}

std::string ThreadedOutput::writeFrame(const PixelBufferView& frame) {
  return writeFrameFilledBy(frame.width, frame.height, [&frame](Bitmap& copy) {
    const std::size_t row = static_cast<std::size_t>(frame.width) * 4;
    for (int y = 0; y < frame.height; ++y) {
      std::copy_n(frame.bytes + static_cast<std::size_t>(y) * frame.rowBytes, row, copy.row(y));
    }
    return std::string();
  });
}

std::string ThreadedOutput::writeFrameFilledBy(int width, int height,
                                               const std::function<std::string(Bitmap&)>& fill) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return queued_.size() < kMaxQueued || !error_.empty(); });
  if (!error_.empty()) {
    return error_;
  }
  std::optional<Bitmap> frame;
  // Spare buffers of another size are dropped.
  while (!spare_.empty() && !frame) {
    if (spare_.back().width() == width && spare_.back().height() == height) {
      frame = std::move(spare_.back());
    }
    spare_.pop_back();
  }
  lock.unlock();
  if (!frame) {
    frame = Bitmap::allocate(width, height, static_cast<std::size_t>(width) * 4);
    if (!frame) {
      return "out of memory for a " + std::to_string(width) + "x" + std::to_string(height) + " frame";
    }
  }
  if (std::string error = fill(*frame); !error.empty()) {
    lock.lock();
    spare_.push_back(std::move(*frame));
    return error;
  }
  lock.lock();
  queued_.push_back(std::move(*frame));
  changed_.notify_all();
  return {};
}

void ThreadedOutput::work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return !queued_.empty() || closing_; });
    if (queued_.empty()) {
      return;
    }
    Bitmap frame = std::move(queued_.front());
    queued_.pop_front();
    // After a failure the remaining frames are dropped.
    const bool failed = !error_.empty();
    lock.unlock();
    std::string error;
    if (!failed) {
      error = inner_->writeFrame(frame.view());
    }
    lock.lock();
    if (!error.empty() && error_.empty()) {
      error_ = error;
    }
    spare_.push_back(std::move(frame));
    changed_.notify_all();
  }
}

std::string ThreadedOutput::stopWorker() {
  {
    std::lock_guard lock(mutex_);
    closing_ = true;
  }
  changed_.notify_all();
  if (worker_.joinable()) {
    worker_.join();
  }
  return error_;
}

std::string ThreadedOutput::finish() {
  if (std::string error = stopWorker(); !error.empty()) {
    return error;
  }
  return inner_->finish();
}

}  // namespace qva
