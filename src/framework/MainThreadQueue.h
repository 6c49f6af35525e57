#pragma once

#include <functional>

namespace qva {

// The host thread's queue: background work hands its results to the thread that runs the patches.
class MainThreadQueue {
 public:
  using Task = std::function<void()>;

  virtual ~MainThreadQueue() = default;
  // Runs the task on the host thread at its next pump.
  virtual void post(Task task) = 0;
  // Runs the task on the host thread and returns once it has run (at once when called from there).
  virtual void postAndWait(Task task) = 0;
};

}  // namespace qva
