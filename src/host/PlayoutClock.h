#pragma once

#include <chrono>

namespace qva {

// The time a playout keeps: a monotonic count of nanoseconds from an arbitrary origin, and a wait until
// a time on it that wake() cuts short. Tests drive playout with a clock of their own.
class PlayoutClock {
 public:
  using Time = std::chrono::nanoseconds;

  virtual ~PlayoutClock() = default;
  virtual Time now() = 0;
  // Returns at the time, or earlier when woken.
  virtual void waitUntil(Time time) = 0;
  // Ends the wait in progress, and the next one should none be in progress.
  virtual void wake() = 0;
};

}  // namespace qva
