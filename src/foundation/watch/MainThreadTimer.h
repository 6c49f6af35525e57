#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace qva {

class MainThreadQueue;

// Runs a task on the host thread once a delay has passed, unless it is cancelled or replaced first. A
// task already handed to the host thread is dropped there when it was cancelled meanwhile.
class MainThreadTimer {
 public:
  explicit MainThreadTimer(MainThreadQueue& mainThreadQueue);
  ~MainThreadTimer();
  MainThreadTimer(const MainThreadTimer&) = delete;
  MainThreadTimer& operator=(const MainThreadTimer&) = delete;

  // Replaces any task scheduled before.
  void schedule(std::chrono::steady_clock::duration delay, std::function<void()> task);
  void cancel();

 private:
  struct State;

  void run();

  MainThreadQueue& mainThreadQueue_;
  std::shared_ptr<State> state_;
  std::thread thread_;
};

}  // namespace qva
