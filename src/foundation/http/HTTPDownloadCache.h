#pragma once

#include <chrono>
#include <cstddef>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "foundation/http/HTTPResponse.h"

namespace qva {

// The client's download cache: successful GET responses kept in memory by URL, least recently used
// first out when the byte budget is spent. It honours the response's caching headers: "no-store" is
// never kept, "no-cache" is kept but always stale, and "max-age" or "Expires" bound how long an entry
// stays fresh; a response that says nothing stays fresh. Thread-safe.
class HTTPDownloadCache {
 public:
  using Clock = std::chrono::system_clock;

  struct Lookup {
    HTTPResponse response;
    bool fresh = false;
  };

  explicit HTTPDownloadCache(std::size_t capacityBytes = kDefaultCapacityBytes);

  // The cache every client shares unless it is given its own.
  static HTTPDownloadCache& shared();

  std::optional<Lookup> find(const std::string& url, Clock::time_point now = Clock::now());
  // Keeps a response when its status and caching headers allow it; replaces any earlier entry.
  void store(const std::string& url, const HTTPResponse& response, Clock::time_point now = Clock::now());
  // A 304 answer to a revalidation: the entry takes the new caching headers and is fresh again. Answers
  // the updated response, or none when the entry is gone meanwhile.
  std::optional<HTTPResponse> refresh(const std::string& url, const HTTPResponse& notModified,
                                      Clock::time_point now = Clock::now());
  void remove(const std::string& url);
  void clear();

  std::size_t entryCount() const;
  // Bytes held by bodies, headers and keys.
  std::size_t byteCount() const;

  static constexpr std::size_t kDefaultCapacityBytes = 32u << 20;

 private:
  struct Entry {
    std::string url;
    HTTPResponse response;
    std::optional<Clock::time_point> freshUntil;
    bool alwaysRevalidate = false;
    std::size_t bytes = 0;
  };
  using Entries = std::list<Entry>;

  void insert(Entry entry);
  void erase(Entries::iterator entry);

  mutable std::mutex mutex_;
  std::size_t capacityBytes_;
  std::size_t byteCount_ = 0;
  Entries entries_;  // most recently used first
  std::unordered_map<std::string, Entries::iterator> byURL_;
};

}  // namespace qva
