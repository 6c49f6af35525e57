#include "foundation/media/MovieOpener.h"

#include <mutex>
#include <optional>
#include <thread>

namespace qva {

struct MovieOpener::Request {
  MainThreadQueue* queue = nullptr;
  std::string path;
  MovieLoadMode mode = MovieLoadMode::PrerollOnly;
  double incrementSeconds = 1.0;
  Delivery delivery;
  // The request's number: a request is current while no later one was made.
  std::uint64_t generation = 0;
};

// Shared by the owner and the worker thread, so that either may go first.
struct MovieOpener::State {
  std::mutex mutex;
  std::optional<Request> waiting;
  std::uint64_t generation = 0;
  // The generation last delivered or dropped by cancel; equal to generation when nothing is pending.
  std::uint64_t settled = 0;
  bool working = false;
};

MovieOpener::MovieOpener() : state_(std::make_shared<State>()) {}

MovieOpener::~MovieOpener() {
  cancel();
}

void MovieOpener::open(MainThreadQueue& queue, const std::string& path, MovieLoadMode mode,
                       double incrementSeconds, Delivery delivery) {
  std::lock_guard lock(state_->mutex);
  state_->waiting = Request{&queue, path, mode, incrementSeconds, std::move(delivery), ++state_->generation};
  if (!state_->working) {
    state_->working = true;
    // The thread holds the state, never the owner: an owner that goes leaves it to finish on its own.
    std::thread([state = state_] { work(state); }).detach();
  }
}

void MovieOpener::cancel() {
  std::lock_guard lock(state_->mutex);
  state_->waiting.reset();
  state_->settled = ++state_->generation;
}

bool MovieOpener::isOpening() const {
  std::lock_guard lock(state_->mutex);
  return state_->settled != state_->generation;
}

void MovieOpener::work(const std::shared_ptr<State>& state) {
  for (;;) {
    Request request;
    {
      std::lock_guard lock(state->mutex);
      if (!state->waiting) {
        state->working = false;
        return;
      }
      request = std::move(*state->waiting);
      state->waiting.reset();
    }
    auto opening = std::make_shared<MovieFile::Opening>(
        MovieFile::open(request.path, request.mode, request.incrementSeconds));
    // Posted under the lock, so that a cancel that has returned is never followed by a post.
    std::lock_guard lock(state->mutex);
    if (request.generation != state->generation) {
      continue;
    }
    request.queue->post(
        [state, opening, generation = request.generation, delivery = std::move(request.delivery)] {
          {
            std::lock_guard hostLock(state->mutex);
            if (generation != state->generation) {
              return;
            }
            state->settled = generation;
          }
          delivery(std::move(*opening));
        });
  }
}

}  // namespace qva
