#include "foundation/dispatch/TaskQueue.h"

#include <future>

namespace qva {

TaskQueue::TaskQueue() : hostThread_(std::this_thread::get_id()) {}

void TaskQueue::post(Task task) {
  {
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
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
  std::deque<Task> ready;
  {
    std::lock_guard lock(mutex_);
    ready.swap(tasks_);
  }
  for (Task& task : ready) {
    task();
  }
  return ready.size();
}

void TaskQueue::pumpFor(std::chrono::steady_clock::duration duration) {
  const auto deadline = std::chrono::steady_clock::now() + duration;
  pump();
  while (std::chrono::steady_clock::now() < deadline) {
    {
      std::unique_lock lock(mutex_);
      arrived_.wait_until(lock, deadline, [this] { return !tasks_.empty(); });
    }
    pump();
  }
}

}  // namespace qva
