#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "framework/MainThreadQueue.h"

namespace qva {

// The host thread's queue. Background threads post tasks; the thread that created the queue runs them
// when it pumps. postAndWait from a background thread blocks until the host thread has run the task.
class TaskQueue final : public MainThreadQueue {
 public:
  TaskQueue();

  void post(Task task) override;
  void postAndWait(Task task) override;

  // Runs every task queued so far; answers how many ran. Call on the host thread only.
  std::size_t pump();
  // Pumps until the duration has passed, waking as soon as tasks arrive.
  void pumpFor(std::chrono::steady_clock::duration duration);

  bool isHostThread() const { return std::this_thread::get_id() == hostThread_; }

 private:
  std::thread::id hostThread_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Task> tasks_;
};

}  // namespace qva
