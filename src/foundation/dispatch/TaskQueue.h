#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

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
  // Pumps until done answers true or the duration has passed; answers done's last answer.
  bool pumpUntil(std::chrono::steady_clock::duration duration, const std::function<bool()>& done);

  bool isHostThread() const { return std::this_thread::get_id() == hostThread_; }
  // How many tasks posted from other threads have run so far: background work that delivered.
  std::size_t backgroundTasksRun() const { return backgroundTasksRun_; }

 private:
  std::thread::id hostThread_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  // Each task with whether another thread posted it.
  std::deque<std::pair<Task, bool>> tasks_;
  std::size_t backgroundTasksRun_ = 0;
};

}  // namespace qva
