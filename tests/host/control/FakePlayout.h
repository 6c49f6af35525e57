#pragma once

#include <algorithm>
#include <cstring>
#include <mutex>

#include "host/PlayoutControl.h"

namespace qva {

// A playout without a clock for the control tests: changes wait until the test shows a frame, and every
// call the control side makes is recorded.
class FakePlayout : public PlayoutControl {
 public:
  FakePlayout() {
    state_.composition = "/shows/lower-third.qvc";
    state_.frameRate = 50;
    state_.inputs = {
        {"name", PortType::String, Value("Eleanor Vance"), {}, {}, {}},
        {"score", PortType::Index, Value(std::uint32_t{0}), 0.0, 99.0, {}},
        {"level", PortType::Number, Value(0.5), 0.0, 1.0, {}},
        {"style", PortType::Index, Value(std::uint32_t{1}), {}, {}, {"Red", "Blue"}},
        {"takeOff", PortType::Boolean, Value(false), {}, {}, {}},
        {"tint", PortType::Color, Value(Color{1, 1, 1, 1}), {}, {}, {}},
        {"picture", PortType::Image, Value(), {}, {}, {}},
    };
    state_.outputs = {{"waiting", Value(true)}};
  }

  PlayoutState state() const override { return locked(state_); }

  std::string setInputs(const std::vector<std::pair<std::string, Value>>& changes) override {
    std::lock_guard lock(mutex_);
    ++setInputsCalls_;
    if (!refusal_.empty()) {
      return refusal_;
    }
    for (const auto& [name, value] : changes) {
      if (!findInput(name)) {
        return "no input " + name;
      }
    }
    batches_.push_back(changes);
    for (const auto& change : changes) {
      pending_.push_back(change);
    }
    return {};
  }

  std::string load(const std::string& path) override {
    std::lock_guard lock(mutex_);
    loads_.push_back(path);
    return {};
  }

  void stop() override {
    std::lock_guard lock(mutex_);
    stopped_ = true;
  }

  std::shared_ptr<const Bitmap> latestFrame() override {
    std::lock_guard lock(mutex_);
    ++framesRead_;
    return frame_;
  }

  void setFrameObserver(std::function<void(long long)> observer) override {
    std::lock_guard lock(mutex_);
    observer_ = std::move(observer);
  }

  // Applies the pending changes as the host does at a frame boundary, then tells the observer.
  void showFrame() {
    std::function<void(long long)> observer;
    long long frame = 0;
    {
      std::lock_guard lock(mutex_);
      for (const auto& [name, value] : pending_) {
        findInput(name)->value = value;
      }
      pending_.clear();
      frame = ++state_.frame;
      state_.time = static_cast<double>(frame) / state_.frameRate;
      ++state_.pacing.framesShown;
      observer = observer_;
    }
    if (observer) {
      observer(frame);
    }
  }

  // The frame latestFrame() answers from now on: a single colour, premultiplied BGRA.
  void setFrame(int width, int height, std::uint8_t blue, std::uint8_t green, std::uint8_t red) {
    std::optional<Bitmap> bitmap = Bitmap::allocate(width, height, Bitmap::alignedRowBytes(width));
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const std::uint8_t pixel[4] = {blue, green, red, 255};
        std::memcpy(bitmap->row(y) + x * 4, pixel, 4);
      }
    }
    std::lock_guard lock(mutex_);
    frame_ = std::make_shared<const Bitmap>(std::move(*bitmap));
  }

  void refuseChanges(std::string why) {
    std::lock_guard lock(mutex_);
    refusal_ = std::move(why);
  }

  std::vector<std::vector<std::pair<std::string, Value>>> batches() const { return locked(batches_); }
  int setInputsCalls() const { return locked(setInputsCalls_); }
  std::vector<std::string> loads() const { return locked(loads_); }
  bool stopped() const { return locked(stopped_); }
  int framesRead() const { return locked(framesRead_); }
  bool observed() const { return locked(observer_) != nullptr; }

 private:
  // A copy of a member, taken under the lock.
  template <typename T>
  T locked(const T& member) const {
    std::lock_guard lock(mutex_);
    return member;
  }

  PublishedInputState* findInput(const std::string& name) {
    const auto found = std::find_if(state_.inputs.begin(), state_.inputs.end(),
                                    [&](const PublishedInputState& input) { return input.name == name; });
    return found == state_.inputs.end() ? nullptr : &*found;
  }

  mutable std::mutex mutex_;
  PlayoutState state_;
  std::vector<std::pair<std::string, Value>> pending_;
  std::vector<std::vector<std::pair<std::string, Value>>> batches_;
  std::vector<std::string> loads_;
  std::string refusal_;
  std::shared_ptr<const Bitmap> frame_;
  std::function<void(long long)> observer_;
  int setInputsCalls_ = 0;
  int framesRead_ = 0;
  bool stopped_ = false;
};

}  // namespace qva
