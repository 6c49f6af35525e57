#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "host/RenderOutput.h"
#include "support/PixelProbe.h"

namespace qva {

// An output for tests that holds every frame until released, notes the first byte and the time (in frame
// periods, counting those skipped) of each frame it writes (and, when asked, a copy of the whole frame),
// and fails from a given frame on when asked.
class BlockingOutput final : public RenderOutput {
 public:
  struct Record {
    std::mutex mutex;
    std::condition_variable changed;
    bool released = true;
    std::vector<int> firstBytes;
    std::vector<long long> times;
    long long nextTime = 0;
    bool keepsFrames = false;
    std::vector<std::vector<std::uint8_t>> frames;  // rows packed tightly, when keepsFrames
    int failFrom = -1;
    std::string finishError;
    bool finished = false;

    void hold() {
      std::lock_guard lock(mutex);
      released = false;
    }
    void release() {
      {
        std::lock_guard lock(mutex);
        released = true;
      }
      changed.notify_all();
    }
    std::size_t count() {
      std::lock_guard lock(mutex);
      return firstBytes.size();
    }
  };

  explicit BlockingOutput(Record& record) : record_(record) {}

  std::string writeFrame(const PixelBufferView& frame) override {
    std::unique_lock lock(record_.mutex);
    record_.changed.wait(lock, [this] { return record_.released; });
    if (record_.failFrom >= 0 && static_cast<int>(record_.firstBytes.size()) >= record_.failFrom) {
      return "the test output failed";
    }
    record_.firstBytes.push_back(frame.bytes[0]);
    record_.times.push_back(record_.nextTime++);
    if (record_.keepsFrames) {
      record_.frames.push_back(packedBytes(frame));
    }
    return {};
  }
  void skipFrames(long long count) override {
    std::lock_guard lock(record_.mutex);
    record_.nextTime += count;
  }
  std::string finish() override {
    std::lock_guard lock(record_.mutex);
    record_.finished = true;
    return record_.finishError;
  }
  std::string description() const override { return "test output"; }

 private:
  Record& record_;
};

}  // namespace qva
