#include "host/MonotonicClock.h"

namespace qva {

PlayoutClock::Time MonotonicClock::now() {
  return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now().time_since_epoch());
}

void MonotonicClock::waitUntil(Time time) {
  std::unique_lock lock(mutex_);
  woken_.wait_until(lock, std::chrono::steady_clock::time_point(time), [this] { return wakeRequested_; });
  wakeRequested_ = false;
}

void MonotonicClock::wake() {
  {
    std::lock_guard lock(mutex_);
    wakeRequested_ = true;
  }
  woken_.notify_all();
}

}  // namespace qva
