#include <gtest/gtest.h>

#include "foundation/dispatch/TaskQueue.h"
#include "foundation/watch/MainThreadTimer.h"

namespace qva {
namespace {

using namespace std::chrono_literals;

TEST(MainThreadTimer, RunsTheLatestTaskOnTheHostThreadAfterItsDelay) {
  TaskQueue tasks;
  MainThreadTimer timer(tasks);
  std::vector<int> ran;
  const auto start = std::chrono::steady_clock::now();
  timer.schedule(10s, [&] { ran.push_back(1); });
  timer.schedule(20ms, [&] { ran.push_back(2); });
  while (ran.empty() && std::chrono::steady_clock::now() - start < 10s) {
    tasks.pumpFor(2ms);
  }
  EXPECT_EQ(ran, std::vector<int>{2});
  EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
}

TEST(MainThreadTimer, CancelledTasksNeverRunEvenWhenAlreadyHandedOver) {
  TaskQueue tasks;
  int ran = 0;
  {
    MainThreadTimer timer(tasks);
    timer.schedule(1ms, [&] { ++ran; });
    timer.cancel();
    timer.schedule(1ms, [&] { ++ran; });
    // Handed over to the host queue but not run yet.
    std::this_thread::sleep_for(30ms);
    timer.cancel();
    tasks.pump();
    EXPECT_EQ(ran, 0);
    timer.schedule(1ms, [&] { ++ran; });
    std::this_thread::sleep_for(30ms);
  }
  tasks.pump();
  EXPECT_EQ(ran, 0);
}

}  // namespace
}  // namespace qva
