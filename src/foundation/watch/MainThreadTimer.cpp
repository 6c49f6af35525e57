#include "foundation/watch/MainThreadTimer.h"

#include "framework/MainThreadQueue.h"

namespace qva {

struct MainThreadTimer::State {
  std::mutex mutex;
  std::condition_variable changed;
  std::function<void()> task;
  std::chrono::steady_clock::time_point deadline;
  // Counts schedules and cancellations: a task handed over runs only if no newer one came since.
  std::uint64_t generation = 0;
  bool stopping = false;
};

MainThreadTimer::MainThreadTimer(MainThreadQueue& mainThreadQueue)
    : mainThreadQueue_(mainThreadQueue), state_(std::make_shared<State>()), thread_([this] { run(); }) {}

MainThreadTimer::~MainThreadTimer() {
  {
    std::lock_guard lock(state_->mutex);
    state_->stopping = true;
    state_->task = nullptr;
    ++state_->generation;
  }
  state_->changed.notify_all();
  thread_.join();
}

void MainThreadTimer::schedule(std::chrono::steady_clock::duration delay, std::function<void()> task) {
  {
    std::lock_guard lock(state_->mutex);
    state_->task = std::move(task);
    state_->deadline = std::chrono::steady_clock::now() + delay;
    ++state_->generation;
  }
  state_->changed.notify_all();
}

void MainThreadTimer::cancel() {
  {
    std::lock_guard lock(state_->mutex);
    state_->task = nullptr;
    ++state_->generation;
  }
  state_->changed.notify_all();
}

void MainThreadTimer::run() {
  std::unique_lock lock(state_->mutex);
  while (!state_->stopping) {
    if (!state_->task) {
      state_->changed.wait(lock);
      continue;
    }
    if (state_->changed.wait_until(lock, state_->deadline) != std::cv_status::timeout) {
      continue;  // woken early: look again at what is scheduled now
    }
    if (!state_->task || std::chrono::steady_clock::now() < state_->deadline) {
      continue;
    }
    std::function<void()> task = std::move(state_->task);
    state_->task = nullptr;
    const std::uint64_t generation = state_->generation;
    std::shared_ptr<State> state = state_;
    mainThreadQueue_.post([state, generation, task = std::move(task)] {
      {
        std::lock_guard guard(state->mutex);
        if (state->generation != generation) {
          return;
        }
      }
      task();
    });
  }
}

}  // namespace qva
