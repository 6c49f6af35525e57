#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include "host/PlayoutControl.h"

namespace qva {

// A PNG thumbnail of the frame last shown, made at most a few times a second however many clients ask:
// reading a frame back and encoding it costs the playout's machine, not the client.
class SnapshotCache {
 public:
  static constexpr int maximumWidth = 480;
  static constexpr int maximumHeight = 270;
  static constexpr std::chrono::milliseconds minimumInterval{200};

  explicit SnapshotCache(PlayoutControl& playout) : playout_(playout) {}

  // The PNG bytes, or an empty string before the first frame.
  std::shared_ptr<const std::string> png();

 private:
  PlayoutControl& playout_;
  std::mutex mutex_;
  std::shared_ptr<const std::string> encoded_;
  std::chrono::steady_clock::time_point madeAt_;
};

}  // namespace qva
