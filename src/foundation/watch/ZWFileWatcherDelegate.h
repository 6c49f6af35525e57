#pragma once

#include <string>

namespace qva {

class ZWKQueue;

// Receives a watcher's notifications on the host thread, one call per kind of change.
class ZWFileWatcherDelegate {
 public:
  virtual ~ZWFileWatcherDelegate() = default;
  virtual void watcher(ZWKQueue& watcher, const std::string& notification, const std::string& path) = 0;
};

}  // namespace qva
