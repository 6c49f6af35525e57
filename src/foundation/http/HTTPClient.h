#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/http/HTTPDownloadCache.h"
#include "foundation/http/HTTPResponse.h"

namespace qva {

enum class HTTPCachePolicy {
  // Always loads; the response still goes into the cache.
  ReloadIgnoringCache,
  // A cached response is used, revalidated with the server first when its caching headers say it is
  // stale; loads only when nothing is cached.
  ReturnCacheElseLoad,
  // Only a cached response, whatever its age; fails when nothing is cached.
  ReturnCacheDontLoad,
};

// One transfer as the client runs it.
struct HTTPTransfer {
  std::string url;
  std::string method = "GET";
  HTTPHeaderFields headers;
  std::string body;
  // No limit when 0.
  double timeoutSeconds = 60;
  HTTPCachePolicy cachePolicy = HTTPCachePolicy::ReloadIgnoringCache;
};

struct HTTPResult {
  // A description of what went wrong, or none; HTTP error statuses are responses, not errors.
  std::optional<std::string> error;
  HTTPResponse response;
  bool fromCache = false;
};

// An HTTP client over libcurl's multi interface: every transfer and cache lookup runs on the client's
// own thread, so starting one never blocks the caller. It follows redirects (http and https only),
// accepts gzip and deflate bodies, takes proxies from the environment (http_proxy, https_proxy,
// no_proxy) and keeps GET responses in a download cache. Header names, values or methods holding line
// breaks are refused before anything is sent.
class HTTPClient {
 public:
  using Completion = std::function<void(HTTPResult)>;
  using TransferId = std::uint64_t;

  // Bodies above maxBodyBytes end their transfer with an error.
  explicit HTTPClient(HTTPDownloadCache& cache = HTTPDownloadCache::shared(),
                      std::size_t maxBodyBytes = kDefaultMaxBodyBytes);
  // Drops every transfer without calling its completion.
  ~HTTPClient();
  HTTPClient(const HTTPClient&) = delete;
  HTTPClient& operator=(const HTTPClient&) = delete;

  static HTTPClient& shared();

  // The completion runs once, on the client's thread, unless the transfer is cancelled before it ends.
  TransferId start(HTTPTransfer transfer, Completion completion);
  // Stops a transfer soon; a completion already running is not waited for.
  void cancel(TransferId id);

  HTTPDownloadCache& cache() { return cache_; }

  static constexpr std::size_t kDefaultMaxBodyBytes = 128u << 20;

 private:
  struct Transfer;
  struct Pending {
    TransferId id;
    HTTPTransfer transfer;
    Completion completion;
  };

  void run();
  void begin(Pending pending);
  void finishCompletedTransfers();
  void finish(Transfer& transfer, CURLcode code);
  void drop(TransferId id);

  HTTPDownloadCache& cache_;
  const std::size_t maxBodyBytes_;
  CURLM* multi_ = nullptr;
  std::mutex mutex_;
  bool stopping_ = false;
  TransferId nextId_ = 1;
  std::vector<Pending> pending_;
  std::vector<TransferId> cancelled_;
  // Touched by the client's thread only.
  std::map<TransferId, std::unique_ptr<Transfer>> active_;
  std::thread thread_;
};

}  // namespace qva
