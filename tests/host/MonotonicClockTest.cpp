#include <gtest/gtest.h>

#include <thread>

#include "host/MonotonicClock.h"

namespace qva {
namespace {

TEST(MonotonicClockTest, WakeEndsTheWaitInProgressOrTheNextOne) {
  MonotonicClock clock;
  const auto start = clock.now();
  // Woken before it waits, a wait of an hour returns at once.
  clock.wake();
  clock.waitUntil(start + std::chrono::hours(1));
  std::thread waker([&clock] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    clock.wake();
  });
  clock.waitUntil(clock.now() + std::chrono::hours(1));
  waker.join();
  EXPECT_LT(clock.now() - start, std::chrono::minutes(1));
  // A wait for a time past returns without waking.
  clock.waitUntil(start);
  EXPECT_GE(clock.now(), start);
}

}  // namespace
}  // namespace qva
