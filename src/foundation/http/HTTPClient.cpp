#include "foundation/http/HTTPClient.h"

#include <algorithm>
#include <cctype>
#include <limits>

#include "framework/StringTrimming.h"

namespace qva {

namespace {

constexpr long kMaxRedirects = 10;
constexpr int kIdlePollMilliseconds = 1000;

void initializeCurlOnce() {
  static const CURLcode initialized = curl_global_init(CURL_GLOBAL_DEFAULT);
  (void)initialized;
}

bool holdsLineBreak(const std::string& text) {
  return text.find_first_of(std::string("\r\n\0", 3)) != std::string::npos;
}

// Why a transfer may not be sent, or none when it may.
std::optional<std::string> refusalOf(const HTTPTransfer& transfer) {
  if (transfer.method.empty() || holdsLineBreak(transfer.method) ||
      transfer.method.find(' ') != std::string::npos) {
    return "The request method \"" + transfer.method + "\" is not valid; the request was not sent.";
  }
  for (const auto& [name, value] : transfer.headers) {
    if (name.empty() || holdsLineBreak(name) || name.find(':') != std::string::npos) {
      return "The header field name \"" + name + "\" is not valid; the request was not sent.";
    }
    if (holdsLineBreak(value)) {
      return "The value of the header field \"" + name + "\" holds a line break; the request was not sent.";
    }
  }
  return std::nullopt;
}

bool hasHeader(const HTTPTransfer& transfer, const std::string& name) {
  return findHeaderField(transfer.headers, name) != transfer.headers.end();
}

std::string describe(CURLcode code, const char* detail) {
  std::string description;
  switch (code) {
    case CURLE_OPERATION_TIMEDOUT:
      description = "The request timed out.";
      break;
    case CURLE_COULDNT_RESOLVE_HOST:
      description = "A server with the specified hostname could not be found.";
      break;
    case CURLE_COULDNT_CONNECT:
      description = "Could not connect to the server.";
      break;
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_URL_MALFORMAT:
      description = "The URL is not a valid http or https URL.";
      break;
    case CURLE_TOO_MANY_REDIRECTS:
      description = "Too many redirects.";
      break;
    case CURLE_GOT_NOTHING:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
      description = "The network connection was lost.";
      break;
    default:
      description = curl_easy_strerror(code);
      break;
  }
  if (detail != nullptr && detail[0] != '\0') {
    description += std::string(" (") + detail + ")";
  }
  return description;
}

}  // namespace

struct HTTPClient::Transfer {
  TransferId id = 0;
  HTTPTransfer request;
  Completion completion;
  CURL* easy = nullptr;
  curl_slist* headerList = nullptr;
  HTTPResponse response;
  // The cached response being revalidated with a conditional request.
  std::optional<HTTPResponse> revalidating;
  std::size_t maxBodyBytes = 0;
  bool bodyTooLarge = false;
  char errorBuffer[CURL_ERROR_SIZE] = {};

  ~Transfer() {
    curl_slist_free_all(headerList);
    curl_easy_cleanup(easy);
  }

  void addHeader(const std::string& line) { headerList = curl_slist_append(headerList, line.c_str()); }

  static std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* user) {
    auto& transfer = *static_cast<Transfer*>(user);
    const std::string_view line(data, size * count);
    if (line.starts_with("HTTP/")) {
      // A new response begins: a redirect or an interim answer came before it.
      transfer.response.headers.clear();
    } else if (const auto colon = line.find(':'); colon != std::string_view::npos && colon > 0) {
      transfer.response.addHeader(trimmed(line.substr(0, colon), " \t\r\n"),
                                  trimmed(line.substr(colon + 1), " \t\r\n"));
    }
    return size * count;
  }

  static std::size_t onBody(char* data, std::size_t size, std::size_t count, void* user) {
    auto& transfer = *static_cast<Transfer*>(user);
    if (transfer.response.body.size() + size * count > transfer.maxBodyBytes) {
      transfer.bodyTooLarge = true;
      return 0;
    }
    transfer.response.body.append(data, size * count);
    return size * count;
  }
};

HTTPClient::HTTPClient(HTTPDownloadCache& cache, std::size_t maxBodyBytes)
    : cache_(cache), maxBodyBytes_(maxBodyBytes) {
  initializeCurlOnce();
  multi_ = curl_multi_init();
  thread_ = std::thread([this] { run(); });
}

HTTPClient::~HTTPClient() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  curl_multi_wakeup(multi_);
  thread_.join();
  for (auto& [id, transfer] : active_) {
    curl_multi_remove_handle(multi_, transfer->easy);
  }
  active_.clear();
  curl_multi_cleanup(multi_);
}

HTTPClient& HTTPClient::shared() {
  static HTTPClient client;
  return client;
}

HTTPClient::TransferId HTTPClient::start(HTTPTransfer transfer, Completion completion) {
  TransferId id = 0;
  {
    std::lock_guard lock(mutex_);
    id = nextId_++;
    pending_.push_back(Pending{id, std::move(transfer), std::move(completion)});
  }
  curl_multi_wakeup(multi_);
  return id;
}

void HTTPClient::cancel(TransferId id) {
  {
    std::lock_guard lock(mutex_);
    cancelled_.push_back(id);
  }
  curl_multi_wakeup(multi_);
}

void HTTPClient::run() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    std::vector<Pending> pending = std::move(pending_);
    std::vector<TransferId> cancelled = std::move(cancelled_);
    pending_.clear();
    cancelled_.clear();
    lock.unlock();
    for (Pending& transfer : pending) {
      if (std::find(cancelled.begin(), cancelled.end(), transfer.id) == cancelled.end()) {
        begin(std::move(transfer));
      }
    }
    for (TransferId id : cancelled) {
      drop(id);
    }
    int running = 0;
    curl_multi_perform(multi_, &running);
    finishCompletedTransfers();
    curl_multi_poll(multi_, nullptr, 0, kIdlePollMilliseconds, nullptr);
    lock.lock();
  }
}

void HTTPClient::begin(Pending pending) {
  HTTPTransfer& request = pending.transfer;
  if (auto refusal = refusalOf(request)) {
    pending.completion(HTTPResult{std::move(refusal), {}, false});
    return;
  }
  std::optional<HTTPResponse> revalidating;
  if (request.method == "GET" && request.cachePolicy != HTTPCachePolicy::ReloadIgnoringCache) {
    auto cached = cache_.find(request.url);
    if (request.cachePolicy == HTTPCachePolicy::ReturnCacheDontLoad) {
      pending.completion(cached ? HTTPResult{std::nullopt, std::move(cached->response), true}
                                : HTTPResult{"The resource is not in the download cache.", {}, false});
      return;
    }
    if (cached && cached->fresh) {
      pending.completion(HTTPResult{std::nullopt, std::move(cached->response), true});
      return;
    }
    // A stale entry is asked about with its validators; without any it is simply loaded again.
    const auto etag = cached ? cached->response.header("ETag") : std::nullopt;
    const auto lastModified = cached ? cached->response.header("Last-Modified") : std::nullopt;
    if (etag && !hasHeader(request, "If-None-Match")) {
      request.headers.emplace_back("If-None-Match", *etag);
    }
    if (lastModified && !hasHeader(request, "If-Modified-Since")) {
      request.headers.emplace_back("If-Modified-Since", *lastModified);
    }
    if (etag || lastModified) {
      revalidating = std::move(cached->response);
    }
  }

  auto transfer = std::make_unique<Transfer>();
  transfer->id = pending.id;
  transfer->maxBodyBytes = maxBodyBytes_;
  transfer->completion = std::move(pending.completion);
  transfer->request = std::move(pending.transfer);
  transfer->revalidating = std::move(revalidating);
  CURL* easy = curl_easy_init();
  transfer->easy = easy;
  const HTTPTransfer& sent = transfer->request;

  curl_easy_setopt(easy, CURLOPT_URL, sent.url.c_str());
  curl_easy_setopt(easy, CURLOPT_PRIVATE, transfer.get());
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, transfer->errorBuffer);
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(easy, CURLOPT_MAXREDIRS, kMaxRedirects);
  curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &Transfer::onHeader);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, transfer.get());
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Transfer::onBody);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, transfer.get());
  if (sent.timeoutSeconds > 0) {
    const double milliseconds =
        std::min(sent.timeoutSeconds * 1000.0, double(std::numeric_limits<long>::max()));
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, std::max(1L, static_cast<long>(milliseconds)));
  }

  if (sent.method == "GET") {
    curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
  } else if (sent.method == "HEAD") {
    curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
  } else {
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, sent.method.c_str());
  }
  if (sent.method == "POST" || !sent.body.empty()) {
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(sent.body.size()));
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, sent.body.data());
    // Nothing but what the caller gave: no form content type, no waiting for "100 Continue".
    if (!hasHeader(sent, "Content-Type")) {
      transfer->addHeader("Content-Type:");
    }
    transfer->addHeader("Expect:");
  }
  for (const auto& [name, value] : sent.headers) {
    transfer->addHeader(value.empty() ? name + ";" : name + ": " + value);
  }
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, transfer->headerList);

  curl_multi_add_handle(multi_, easy);
  active_.emplace(transfer->id, std::move(transfer));
}

void HTTPClient::finishCompletedTransfers() {
  int remaining = 0;
  while (CURLMsg* message = curl_multi_info_read(multi_, &remaining)) {
    if (message->msg != CURLMSG_DONE) {
      continue;
    }
    Transfer* transfer = nullptr;
    curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
    const CURLcode code = message->data.result;
    curl_multi_remove_handle(multi_, message->easy_handle);
    auto owned = active_.extract(transfer->id);
    finish(*transfer, code);
  }
}

void HTTPClient::finish(Transfer& transfer, CURLcode code) {
  if (code != CURLE_OK) {
    const std::string error = transfer.bodyTooLarge
                                  ? "The response is larger than " + std::to_string(maxBodyBytes_) + " bytes."
                                  : describe(code, transfer.errorBuffer);
    transfer.completion(HTTPResult{error, {}, false});
    return;
  }
  HTTPResponse& response = transfer.response;
  curl_easy_getinfo(transfer.easy, CURLINFO_RESPONSE_CODE, &response.statusCode);
  curl_off_t announced = -1;
  curl_easy_getinfo(transfer.easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced);
  response.announcedContentLength = announced;
  const std::string& url = transfer.request.url;
  if (transfer.revalidating && response.statusCode == 304) {
    auto refreshed = cache_.refresh(url, response);
    transfer.completion(
        HTTPResult{std::nullopt, refreshed ? std::move(*refreshed) : *transfer.revalidating, true});
    return;
  }
  if (transfer.request.method == "GET") {
    cache_.store(url, response);
  }
  transfer.completion(HTTPResult{std::nullopt, std::move(response), false});
}

void HTTPClient::drop(TransferId id) {
  const auto found = active_.find(id);
  if (found != active_.end()) {
    curl_multi_remove_handle(multi_, found->second->easy);
    active_.erase(found);
  }
}

}  // namespace qva
