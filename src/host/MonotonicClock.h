#pragma once

#include <condition_variable>
#include <mutex>

#include "host/PlayoutClock.h"

namespace qva {

// The system's monotonic clock, which no change of the wall-clock time moves.
class MonotonicClock final : public PlayoutClock {
 public:
  Time now() override;
  void waitUntil(Time time) override;
  void wake() override;

 private:
  std::mutex mutex_;
  std::condition_variable woken_;
  bool wakeRequested_ = false;
};

}  // namespace qva
