#include "host/control/FrameSignal.h"

namespace qva {

void FrameSignal::notify() {
  {
    std::lock_guard lock(mutex_);
    ++count_;
  }
  changed_.notify_all();
}

std::uint64_t FrameSignal::count() const {
  std::lock_guard lock(mutex_);
  return count_;
}

std::uint64_t FrameSignal::waitBeyond(std::uint64_t seen, std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, timeout, [&] { return closed_ || count_ > seen; });
  return count_;
}

void FrameSignal::close() {
  {
    std::lock_guard lock(mutex_);
    closed_ = true;
  }
  changed_.notify_all();
}

bool FrameSignal::closed() const {
  std::lock_guard lock(mutex_);
  return closed_;
}

}  // namespace qva
