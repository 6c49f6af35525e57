#include "foundation/dispatch/TaskQueue.h"

#include <future>

namespace qva {

TaskQueue::TaskQueue() : hostThread_(std::this_thread::get_id()) {}

void TaskQueue::post(Task task) {
  {
    std::lock_guard lock(mutex_);
    tasks_.emplace_back(std::move(task), !isHostThread());
  }
  arrived_.notify_all();
}

void TaskQueue::postAndWait(Task task) {
  if (isHostThread()) {
    task();
    return;
  }
  auto done = std::make_shared<std::promise<void>>();
  std::future<void> finished = done->get_future();
  post([task = std::move(task), done] {
    task();
    done->set_value();
  });
  finished.wait();
}

std::size_t TaskQueue::pump() {
  std::deque<std::pair<Task, bool>> ready;
  {
    std::lock_guard lock(mutex_);
    ready.swap(tasks_);
  }
  for (auto& [task, fromBackground] : ready) {
    task();
    backgroundTasksRun_ += fromBackground ? 1 : 0;
  }
  return ready.size();
}

void TaskQueue::pumpFor(std::chrono::steady_clock::duration duration) {
  pumpUntil(duration, [] { return false; });
}

bool TaskQueue::pumpUntil(std::chrono::steady_clock::duration duration, const std::function<bool()>& done) {
  const auto deadline = std::chrono::steady_clock::now() + duration;
  pump();
  while (!done() && std::chrono::steady_clock::now() < deadline) {
    {
      std::unique_lock lock(mutex_);
      arrived_.wait_until(lock, deadline, [this] { return !tasks_.empty(); });
    }
    pump();
  }
  return done();
}

}  // namespace qva
