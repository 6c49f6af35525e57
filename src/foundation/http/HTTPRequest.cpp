#include "foundation/http/HTTPRequest.h"

#include <mutex>

#include "framework/MainThreadQueue.h"

namespace qva {

// Shared between the request, the client's completion and the task on the host queue, so that either
// may outlive the request. The mutex orders a cancel against the hand-off to the queue: after cancel
// returns, nothing more is posted.
struct HTTPRequest::State {
  mutable std::mutex mutex;
  bool cancelled = false;
  bool finished = false;
  HTTPResult result;
  Callback completion;
  Callback failure;
};

HTTPRequest::HTTPRequest(std::string url, HTTPClient& client)
    : client_(client), state_(std::make_shared<State>()) {
  transfer_.url = std::move(url);
}

HTTPRequest::~HTTPRequest() {
  cancel();
}

void HTTPRequest::addRequestHeader(std::string name, std::string value) {
  transfer_.headers.emplace_back(std::move(name), std::move(value));
}

void HTTPRequest::setCompletionCallback(Callback callback) {
  std::lock_guard lock(state_->mutex);
  state_->completion = std::move(callback);
}

void HTTPRequest::setFailureCallback(Callback callback) {
  std::lock_guard lock(state_->mutex);
  state_->failure = std::move(callback);
}

void HTTPRequest::clearCallbacks() {
  std::lock_guard lock(state_->mutex);
  state_->completion = nullptr;
  state_->failure = nullptr;
}

void HTTPRequest::startAsynchronous(MainThreadQueue& queue) {
  if (transferId_) {
    return;
  }
  std::weak_ptr<State> weakState = state_;
  transferId_ = client_.start(transfer_, [weakState, &queue](HTTPResult result) {
    const auto state = weakState.lock();
    if (state == nullptr) {
      return;
    }
    std::lock_guard lock(state->mutex);
    if (state->cancelled) {
      return;
    }
    queue.post([state, result = std::move(result)]() mutable {
      Callback callback;
      {
        std::lock_guard hostLock(state->mutex);
        if (state->cancelled) {
          return;
        }
        state->finished = true;
        callback = result.error ? state->failure : state->completion;
        state->result = std::move(result);
      }
      if (callback) {
        callback();
      }
    });
  });
}

void HTTPRequest::cancel() {
  {
    std::lock_guard lock(state_->mutex);
    if (state_->cancelled) {
      return;
    }
    state_->cancelled = true;
    state_->completion = nullptr;
    state_->failure = nullptr;
  }
  if (transferId_) {
    client_.cancel(*transferId_);
  }
}

bool HTTPRequest::isFinished() const {
  std::lock_guard lock(state_->mutex);
  return state_->finished;
}

std::optional<std::string> HTTPRequest::error() const {
  std::lock_guard lock(state_->mutex);
  return state_->result.error;
}

HTTPResponse HTTPRequest::response() const {
  std::lock_guard lock(state_->mutex);
  return state_->result.response;
}

bool HTTPRequest::didUseCachedResponse() const {
  std::lock_guard lock(state_->mutex);
  return state_->result.fromCache;
}

}  // namespace qva
