#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace qva {

// Tells threads waiting for the next frame that one has been shown. The playout's thread only counts
// and wakes them, so that it never waits for a slow client. Frames are counted here rather than by their
// numbers, which start again when another composition is loaded.
class FrameSignal {
 public:
  void notify();
  // How many frames have been shown so far.
  std::uint64_t count() const;
  // Waits until more than `seen` frames have been shown, the time passes or the signal closes; the count
  // then.
  std::uint64_t waitBeyond(std::uint64_t seen, std::chrono::milliseconds timeout);
  // Wakes every waiter for good.
  void close();
  bool closed() const;

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::uint64_t count_ = 0;
  bool closed_ = false;
};

}  // namespace qva
