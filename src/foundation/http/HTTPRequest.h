#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "foundation/http/HTTPClient.h"

namespace qva {

class MainThreadQueue;

// One request sent asynchronously through an HTTPClient. Its result and its callbacks arrive on the
// host thread through the main-thread queue; a cancelled request never reports, even when its
// transfer had already ended.
class HTTPRequest {
 public:
  using Callback = std::function<void()>;

  explicit HTTPRequest(std::string url, HTTPClient& client = HTTPClient::shared());
  // Cancels the request.
  ~HTTPRequest();
  HTTPRequest(const HTTPRequest&) = delete;
  HTTPRequest& operator=(const HTTPRequest&) = delete;

  const std::string& url() const { return transfer_.url; }

  void setRequestMethod(std::string method) { transfer_.method = std::move(method); }
  void addRequestHeader(std::string name, std::string value);
  void setPostBody(std::string body) { transfer_.body = std::move(body); }
  // Seconds; 0 sets no limit.
  void setTimeOutSeconds(double seconds) { transfer_.timeoutSeconds = seconds; }
  void setCachePolicy(HTTPCachePolicy policy) { transfer_.cachePolicy = policy; }
  void setCompletionCallback(Callback callback);
  void setFailureCallback(Callback callback);
  void clearCallbacks();

  // Sends the request with the settings made so far; the callbacks run on that queue's thread. The
  // queue must outlive the request (its destruction cancels) or the request's cancel.
  void startAsynchronous(MainThreadQueue& queue);
  void cancel();

  // Set once the request has ended, on the host thread.
  bool isFinished() const;
  // None until the request failed.
  std::optional<std::string> error() const;
  // The response once the request finished without error.
  HTTPResponse response() const;
  bool didUseCachedResponse() const;

 private:
  struct State;

  HTTPClient& client_;
  HTTPTransfer transfer_;
  std::shared_ptr<State> state_;
  std::optional<HTTPClient::TransferId> transferId_;
};

}  // namespace qva
