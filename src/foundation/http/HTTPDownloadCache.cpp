#include "foundation/http/HTTPDownloadCache.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>

#include "framework/StringCase.h"

namespace qva {

namespace {

struct Freshness {
  bool storable = true;
  bool alwaysRevalidate = false;
  std::optional<HTTPDownloadCache::Clock::time_point> freshUntil;
};

std::optional<long long> maxAgeSeconds(const std::string& cacheControl) {
  const auto at = cacheControl.find("max-age=");
  if (at == std::string::npos || (at > 0 && cacheControl[at - 1] == '-')) {
    return std::nullopt;
  }
  std::size_t digits = at + 8;
  long long seconds = 0;
  bool any = false;
  while (digits < cacheControl.size() && std::isdigit(static_cast<unsigned char>(cacheControl[digits]))) {
    seconds = std::min(seconds * 10 + (cacheControl[digits] - '0'), 1LL << 40);
    any = true;
    ++digits;
  }
  return any ? std::optional<long long>(seconds) : std::nullopt;
}

Freshness freshnessOf(const HTTPResponse& response, HTTPDownloadCache::Clock::time_point now) {
  Freshness freshness;
  const std::string cacheControl = asciiLowercased(response.header("Cache-Control").value_or(""));
  if (cacheControl.find("no-store") != std::string::npos) {
    freshness.storable = false;
    return freshness;
  }
  freshness.alwaysRevalidate = cacheControl.find("no-cache") != std::string::npos;
  if (const auto maxAge = maxAgeSeconds(cacheControl)) {
    freshness.freshUntil = now + std::chrono::seconds(*maxAge);
  } else if (const auto expires = response.header("Expires")) {
    // An unreadable Expires means already expired.
    const time_t expiry = curl_getdate(expires->c_str(), nullptr);
    const auto date = response.header("Date");
    const time_t served = date ? curl_getdate(date->c_str(), nullptr) : -1;
    const auto lifetime =
        expiry < 0 ? 0 : (served < 0 ? expiry - HTTPDownloadCache::Clock::to_time_t(now) : expiry - served);
    freshness.freshUntil = now + std::chrono::seconds(std::max<long long>(lifetime, 0));
  }
  return freshness;
}

std::size_t bytesOf(const std::string& url, const HTTPResponse& response) {
  std::size_t bytes = url.size() + response.body.size();
  for (const auto& [name, value] : response.headers) {
    bytes += name.size() + value.size();
  }
  return bytes;
}

}  // namespace

HTTPDownloadCache::HTTPDownloadCache(std::size_t capacityBytes) : capacityBytes_(capacityBytes) {}

HTTPDownloadCache& HTTPDownloadCache::shared() {
  static HTTPDownloadCache cache;
  return cache;
}

std::optional<HTTPDownloadCache::Lookup> HTTPDownloadCache::find(const std::string& url,
                                                                 Clock::time_point now) {
  std::lock_guard lock(mutex_);
  const auto found = byURL_.find(url);
  if (found == byURL_.end()) {
    return std::nullopt;
  }
  entries_.splice(entries_.begin(), entries_, found->second);
  const Entry& entry = *found->second;
  const bool fresh = !entry.alwaysRevalidate && (!entry.freshUntil || now < *entry.freshUntil);
  return Lookup{entry.response, fresh};
}

void HTTPDownloadCache::store(const std::string& url, const HTTPResponse& response, Clock::time_point now) {
  const Freshness freshness = freshnessOf(response, now);
  std::lock_guard lock(mutex_);
  if (const auto found = byURL_.find(url); found != byURL_.end()) {
    erase(found->second);
  }
  if (response.statusCode != 200 || !freshness.storable) {
    return;
  }
  insert(Entry{url, response, freshness.freshUntil, freshness.alwaysRevalidate, bytesOf(url, response)});
}

std::optional<HTTPResponse> HTTPDownloadCache::refresh(const std::string& url,
                                                       const HTTPResponse& notModified,
                                                       Clock::time_point now) {
  std::lock_guard lock(mutex_);
  const auto found = byURL_.find(url);
  if (found == byURL_.end()) {
    return std::nullopt;
  }
  Entry entry = *found->second;
  erase(found->second);
  for (const auto& [name, value] : notModified.headers) {
    const auto existing = findHeaderField(entry.response.headers, name);
    if (existing != entry.response.headers.end()) {
      existing->second = value;
    } else {
      entry.response.headers.emplace_back(name, value);
    }
  }
  const Freshness freshness = freshnessOf(entry.response, now);
  HTTPResponse updated = entry.response;
  if (freshness.storable) {
    entry.freshUntil = freshness.freshUntil;
    entry.alwaysRevalidate = freshness.alwaysRevalidate;
    entry.bytes = bytesOf(url, entry.response);
    insert(std::move(entry));
  }
  return updated;
}

void HTTPDownloadCache::remove(const std::string& url) {
  std::lock_guard lock(mutex_);
  if (const auto found = byURL_.find(url); found != byURL_.end()) {
    erase(found->second);
  }
}

void HTTPDownloadCache::clear() {
  std::lock_guard lock(mutex_);
  entries_.clear();
  byURL_.clear();
  byteCount_ = 0;
}

std::size_t HTTPDownloadCache::entryCount() const {
  std::lock_guard lock(mutex_);
  return entries_.size();
}

std::size_t HTTPDownloadCache::byteCount() const {
  std::lock_guard lock(mutex_);
  return byteCount_;
}

void HTTPDownloadCache::insert(Entry entry) {
  if (entry.bytes > capacityBytes_) {
    return;
  }
  while (byteCount_ + entry.bytes > capacityBytes_ && !entries_.empty()) {
    erase(std::prev(entries_.end()));
  }
  byteCount_ += entry.bytes;
  const std::string url = entry.url;
  entries_.push_front(std::move(entry));
  byURL_[url] = entries_.begin();
}

void HTTPDownloadCache::erase(Entries::iterator entry) {
  byteCount_ -= entry->bytes;
  byURL_.erase(entry->url);
  entries_.erase(entry);
}

}  // namespace qva
